#include "publisher/signature_text.hpp"

#include <algorithm>

#include "base/text_rules.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

// The longest line that any of ClamAV's readers takes whole.
constexpr std::size_t longestLine = 32767;

std::int64_t lineOfPlace(std::string_view content, std::size_t place) {
  return std::ranges::count(content.substr(0, place), '\n') + 1;
}

}  // namespace

bool isByLines(std::string_view kind) {
  return kind != "cbc" && kind != "yar" && kind != "yara";
}

std::optional<TextFault> faultOf(std::string_view content, std::string_view kind) {
  if (content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF")) {
    return TextFault{.line = 0, .reason = "it is UTF-16; save it as plain text"};
  }
  if (content.starts_with("\xEF\xBB\xBF")) {
    return TextFault{.line = 1, .reason = "a byte-order mark stands before it; save it without"};
  }
  if (const std::size_t place = content.find('\0'); place != std::string_view::npos) {
    return TextFault{.line = lineOfPlace(content, place), .reason = "it holds a NUL byte"};
  }
  if (!isByLines(kind)) return std::nullopt;
  std::int64_t number = 0;
  for (const std::string_view line : split(content, '\n')) {
    ++number;
    if (line.size() > longestLine) {
      return TextFault{.line = number,
                       .reason = "it has " +
                                 counted(static_cast<std::int64_t>(line.size()), "byte") +
                                 ", more than ClamAV reads as one line"};
    }
  }
  return std::nullopt;
}

std::string asJoined(std::string_view content, std::string_view kind) {
  std::string joined = isByLines(kind) ? replaced(content, "\r\n", "\n") : std::string(content);
  if (joined.ends_with('\r') && isByLines(kind)) joined.pop_back();
  if (!joined.empty() && joined.back() != '\n') joined += '\n';
  return joined;
}

}  // namespace tarnwick::publisher
