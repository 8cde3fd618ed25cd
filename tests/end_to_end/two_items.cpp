#include <array>

#include "vendor/vendor_items.hpp"

/// The table of a vendor who publishes one file more. Linked in the place of the program's own.
std::span<const tarnwick::VendorItem> tarnwick::vendorItems() {
  static constexpr auto items = std::to_array<VendorItem>({
      {.name = "database", .scannerDecides = false},
      {.name = "second.ndb", .zipped = true},
  });
  return items;
}
