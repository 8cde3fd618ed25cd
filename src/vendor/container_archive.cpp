#include "vendor/container_archive.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "base/file_tree.hpp"
#include "base/text_rules.hpp"
#include "driver/commands.hpp"

namespace tarnwick {
namespace {

constexpr std::size_t headerSize = 512;

/// `tar` takes "-x" for an option and "\\057etc" for the path "/etc".
bool isPlainForTar(const std::string& name) {
  return !name.starts_with('-') && name.find('\\') == std::string::npos;
}

}  // namespace

bool packFolder(const std::filesystem::path& folder, const std::filesystem::path& archive) {
  // A folder that could not be listed to its end counts as empty: a container must lack no member.
  const auto entries = namesIn(folder).value_or(std::vector<std::string>{});
  if (entries.empty() || !std::ranges::all_of(entries, isPlainForTar)) return false;
  std::vector<std::string> arguments{"-czf", archive.string(),
                                     fmt::format("--exclude={}", archive.filename().string())};
  arguments.insert(arguments.end(), entries.begin(), entries.end());
  const ProgramResult packed = runProgram(
      {.executable = "/usr/bin/tar", .arguments = arguments, .workingDirectory = folder});
  return packed.status.isSuccess();
}

std::string headerWithHash(std::string_view line, std::string_view md5Hash) {
  std::string header = replaced(line, ":X:X:", fmt::format(":{}:X:", md5Hash));
  header.resize(headerSize, ' ');
  return header;
}

std::optional<std::string> joinCommand(std::string_view header,
                                       const std::filesystem::path& archive,
                                       const std::filesystem::path& container) {
  // These would end the quoted text or make the shell execute a part of it.
  if (header.empty() || header.find_first_of("\"$`") != std::string_view::npos) return std::nullopt;
  // The header is printf's format, so printf interprets each "%" and "\" in it.
  return fmt::format(R"(/usr/bin/printf "{}" | cat - "{}" > "{}")", header, archive.string(),
                     container.string());
}

}  // namespace tarnwick
