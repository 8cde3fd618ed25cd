#pragma once

#include <algorithm>
#include <span>
#include <string>
#include <string_view>

namespace tarnwick {

/// One of the vendor's definitions files, installed as Vestrum.<name>.
struct VendorItem {
  std::string_view name;
  bool zipped = false;         ///< published as Vestrum.<name>.zip
  bool scannerDecides = true;  ///< whether it stays out when the scanner rejects it
  bool inContainer = false;    ///< no longer published: `VestRUM.cud` holds what it held

  [[nodiscard]] std::string fileName() const { return "Vestrum." + std::string(name); }
  /// As the vendor's server knows it, without "Vestrum.".
  [[nodiscard]] std::string publishedName() const {
    return std::string(name) + (zipped ? ".zip" : "");
  }
};

/// The name of the vendor's container, which all other files were once apart from.
inline constexpr std::string_view containerName = "VestRUM.cud";

/// Every item that this program updates, reports or removes, in the order of the version report. To
/// add one is to add its row.
std::span<const VendorItem> vendorItems();

/// Whether the scanner's verdict on an item of this name counts. Where there is no row for it, the
/// name tells: every kind of "database" is unknown to ClamAV.
inline bool scannerDecidesOn(std::string_view name) {
  const auto items = vendorItems();
  const auto row = std::ranges::find(items, name, &VendorItem::name);
  return row == items.end() ? !name.ends_with("database") : row->scannerDecides;
}

}  // namespace tarnwick
