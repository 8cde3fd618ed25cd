#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// The two parts of a container file: a header of 512 bytes, and the archive behind it.
namespace tarnwick {

/// Packs everything that a folder holds, except `archive` itself. False if `tar` fails, if the
/// folder is empty or cannot be listed, and if `tar` would misread an entry's name.
[[nodiscard]] bool packFolder(const std::filesystem::path& folder,
                              const std::filesystem::path& archive);

/// The 512 bytes of a header, made from a header line whose fields 5 and 6 are "X".
[[nodiscard]] std::string headerWithHash(std::string_view line, std::string_view md5Hash);

/// The shell command that writes `header` and then the archive into `container`. None if the header
/// is empty, or contains a character that the shell interprets within double quotes.
[[nodiscard]] std::optional<std::string> joinCommand(std::string_view header,
                                                     const std::filesystem::path& archive,
                                                     const std::filesystem::path& container);

}  // namespace tarnwick
