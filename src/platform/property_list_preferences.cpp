#include <fmt/format.h>
#include <plist/plist.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include "base/durable_file.hpp"
#include "base/installation_paths.hpp"
#include "base/text_rules.hpp"
#include "platform/platform.hpp"
#include "platform/property_list.hpp"

namespace tarnwick::platform {
namespace {

namespace fs = std::filesystem;

struct FreeNode {
  void operator()(void* node) const { plist_free(node); }
};
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }  // NOLINT(*-no-malloc)
};
using Node = std::unique_ptr<void, FreeNode>;
template <typename T>
using Memory = std::unique_ptr<T, FreeMemory>;

fs::path fileOf(std::string_view domain) {
  return fs::path(stateDirectory) / fmt::format("{}.plist", domain);
}

void takeText(Preferences& values, const char* key, plist_t item) {
  if (key == nullptr || item == nullptr || plist_get_node_type(item) != PLIST_STRING) return;
  char* text = nullptr;
  plist_get_string_val(item, &text);
  const Memory<char> owner(text);
  if (text != nullptr) values.insert_or_assign(key, text);
}

/// Whether the library returns this text unchanged: XML excludes most control characters and
/// converts line ends.
bool roundTrips(std::string_view text) {
  const auto isControl = [](unsigned char c) { return (c < ' ' && c != '\t') || c == 0x7F; };
  return textFromUtf8(text) && std::ranges::none_of(text, isControl);
}

/// libplist aborts on a NUL byte inside a text, and reads past its tables for some dates.
bool canBeParsed(std::string_view xml) {
  // A real state is far smaller; libplist's recursion overflows the stack for some large texts.
  constexpr std::size_t largest = 65536;
  return !xml.empty() && xml.size() <= largest && xml.find('\0') == std::string_view::npos &&
         xml.find("<date") == std::string_view::npos;
}

std::string xmlOf(plist_t root) {
  char* text = nullptr;
  std::uint32_t length = 0;
  plist_to_xml(root, &text, &length);
  const Memory<char> owner(text);
  return text != nullptr ? std::string(text, length) : std::string();
}

}  // namespace

Preferences parsePropertyList(std::string_view xml) {
  Preferences values;
  if (!canBeParsed(xml)) return values;
  plist_t parsed = nullptr;
  plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &parsed);
  const Node root(parsed);
  if (!root || plist_get_node_type(root.get()) != PLIST_DICT) return values;
  plist_dict_iter started = nullptr;
  plist_dict_new_iter(root.get(), &started);
  const Memory<void> position(started);
  for (;;) {
    char* key = nullptr;
    plist_t item = nullptr;
    plist_dict_next_item(root.get(), position.get(), &key, &item);
    const Memory<char> owner(key);
    if (item == nullptr) return values;
    takeText(values, key, item);
  }
}

std::string formatPropertyList(const Preferences& values) {
  const Node root(plist_new_dict());
  std::string written = xmlOf(root.get());
  for (const auto& [key, value] : values) {
    if (!roundTrips(key) || !roundTrips(value)) continue;
    plist_dict_set_item(root.get(), key.c_str(), plist_new_string(value.c_str()));
    std::string longer = xmlOf(root.get());
    if (canBeParsed(longer)) {
      written = std::move(longer);
    } else {
      plist_dict_remove_item(root.get(), key.c_str());
    }
  }
  return written;
}

std::optional<Preferences> readPreferences(std::string_view domain) {
  const std::ifstream stream(fileOf(domain), std::ios::binary);
  if (!stream) return std::nullopt;
  std::stringstream content;
  content << stream.rdbuf();
  return parsePropertyList(content.str());
}

std::optional<FileFailure> replacePreferences(std::string_view domain, const Preferences& values) {
  ::mkdir(stateDirectory, 0700);
  removeStagedLeftovers(stateDirectory);
  const auto failure = writeFileWhole(fileOf(domain), formatPropertyList(values), 0600);
  return failure ? std::optional(failure->cause) : std::nullopt;
}

}  // namespace tarnwick::platform
