#include <array>

#include "vendor/vendor_items.hpp"

/// The items of a vendor who publishes a second one. Linked instead of the program's own table.
std::span<const tarnwick::VendorItem> tarnwick::vendorItems() {
  static constexpr auto items = std::to_array<VendorItem>({
      {.name = "database", .scannerDecides = false},
      {.name = "second.ndb", .zipped = true},
  });
  return items;
}
