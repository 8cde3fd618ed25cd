#include "base/shell_word.hpp"

#include <cstddef>

namespace tarnwick {
namespace {

/// From the first opening character to the last closing one; empty without such a pair.
std::string_view between(std::string_view text, char opening, char closing) {
  const std::size_t start = text.find(opening);
  const std::size_t end = text.rfind(closing);
  if (start == std::string_view::npos || end == std::string_view::npos || end < start) return {};
  return text.substr(start, end - start + 1);
}

}  // namespace

bool isPlainShellWord(std::string_view path) {
  constexpr std::string_view special = " \t\n\"'`$\\;&|<>()*?";
  if (path.empty() || path.find_first_of(special) != std::string_view::npos) return false;
  if (path[0] == '#' || path[0] == '~') return false;
  const std::string_view braced = between(path, '{', '}');
  return between(path, '[', ']').empty() && braced.find(',') == std::string_view::npos &&
         braced.find("..") == std::string_view::npos;
}

}  // namespace tarnwick
