#include "platform/os_release.hpp"

#include "base/text_rules.hpp"

namespace tarnwick::platform {
namespace {

/// The value of `name` among shell assignments NAME=value, without quotes; empty if there is none.
std::string assignedValue(std::istream& stream, std::string_view name) {
  for (std::string line; std::getline(stream, line);) {
    if (!line.starts_with(name) || line.size() <= name.size() || line[name.size()] != '=') continue;
    std::string value = line.substr(name.size() + 1);
    std::erase_if(value, [](unsigned char c) { return c == '"' || c == '\'' || c < ' '; });
    return value;
  }
  return {};
}

}  // namespace

std::string versionInRelease(std::istream& release) {
  const std::string version = assignedValue(release, "VERSION_ID");
  return version.empty() || !textFromUtf8(version) ? "unknown" : version;
}

}  // namespace tarnwick::platform
