#pragma once

#include <span>
#include <string>
#include <string_view>

namespace tarnwick {

/// A file that the vendor publishes beside the container. It is installed as Vestrum.<name>.
struct VendorItem {
  std::string_view name;       ///< must outlive the item
  bool zipped = false;         ///< the server has it as the archive Vestrum.<name>.zip
  bool scannerDecides = true;  ///< a run installs it only if the scanner accepts it
  bool inContainer = false;    ///< no longer published, because `VestRUM.cud` has its content

  [[nodiscard]] std::string fileName() const { return "Vestrum." + std::string(name); }
  [[nodiscard]] std::string publishedFileName() const {
    return fileName() + (zipped ? ".zip" : "");
  }
  /// The copy of the signature beside an installed item about which the scanner does not decide.
  [[nodiscard]] std::string signatureFileName() const { return fileName() + ".signature"; }
  /// Under which a run remembers the item's "Last-Modified" text.
  [[nodiscard]] std::string stateKey() const { return std::string(name) + "-Last-Modified"; }
};

inline constexpr std::string_view containerName = "VestRUM.cud";

/// Under which a run remembers the container's build date: the key of an item that it replaced.
inline constexpr std::string_view containerStateKey = "hdb-Last-Modified";

/// Every item that this program updates, reports or removes, in the order of the version report. To
/// add an item, add its row; no other file of the program names one.
std::span<const VendorItem> vendorItems();

}  // namespace tarnwick
