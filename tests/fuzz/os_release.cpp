#include "platform/os_release.hpp"

#include <algorithm>
#include <sstream>

#include "fuzz.hpp"

void tarnwick::fuzz::tryInput(std::string_view input) {
  std::istringstream release{std::string(input)};
  const std::string version = platform::versionInRelease(release);
  std::string expected;
  for (const std::string& line : splitByModel(input, '\n')) {
    if (!line.starts_with("VERSION_ID=")) continue;
    for (const char c : line.substr(11)) {
      if (c < 0 || (c >= ' ' && c != '"' && c != '\'')) expected += c;
    }
    break;
  }
  const bool usable = !expected.empty() && charactersByModel(expected);
  require(version == (usable ? expected : "unknown"), "the first version counts");
}
