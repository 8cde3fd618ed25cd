#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick::publisher {

/// Files by name, all in one folder.
using FileSet = std::map<std::string, std::string>;

/// What a gzipped tar archive holds. None when a file of it cannot be read, holds anything but
/// plain files without folders and links, or holds more than `limit` bytes.
std::optional<FileSet> unpackArchive(std::string_view archive, std::uint64_t limit);

/// The same files make the same archive.
std::optional<std::string> packArchive(const FileSet& files);

}  // namespace tarnwick::publisher
