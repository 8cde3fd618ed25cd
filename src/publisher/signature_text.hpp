#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// What a vendor's signature file may look like.
namespace tarnwick::publisher {

/// Why a text cannot be released, and where. Line 0 is the whole file.
struct TextFault {
  std::int64_t line = 0;
  std::string reason;
};

/// Whether files of this kind hold a signature on each line.
bool isByLines(std::string_view kind);

/// What ClamAV would misread, or report at another place.
std::optional<TextFault> faultOf(std::string_view content, std::string_view kind);

/// The content as a part of a joined file: sigtool compares no lines that end in a carriage return,
/// and a last line without a line feed would swallow the first of the next file.
std::string asJoined(std::string_view content, std::string_view kind);

}  // namespace tarnwick::publisher
