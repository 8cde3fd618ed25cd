#include "vendor/vendor_items.hpp"

#include <array>

namespace tarnwick {

std::span<const VendorItem> vendorItems() {
  static constexpr auto items = std::to_array<VendorItem>({
      {.name = "fp", .inContainer = true},
      {.name = "hdb", .inContainer = true},
      {.name = "ign2", .inContainer = true},
      {.name = "ndb", .inContainer = true},
      {.name = "ldb", .inContainer = true},
      // ClamAV does not know this kind of file, so its verdict means nothing.
      {.name = "database", .scannerDecides = false},
  });
  return items;
}

}  // namespace tarnwick
