#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "publisher/archive.hpp"
#include "publisher/workplace.hpp"

/// Containers: read, taken apart, made and tried.
namespace tarnwick::publisher {

inline constexpr std::size_t headerLength = 512;

/// The first line of a container.
struct ContainerHeader {
  std::vector<std::string> fields;  ///< at least three
  std::int64_t version = 0;

  /// How many signatures it says there are; empty when it says nothing.
  [[nodiscard]] std::string signatures() const { return fields.size() > 3 ? fields[3] : ""; }
  [[nodiscard]] std::string level() const { return fields.size() > 4 ? fields[4] : ""; }
};

std::optional<ContainerHeader> headerOf(std::string_view container);
std::optional<ContainerHeader> headerOfFile(const std::filesystem::path& container);

/// Its version, 0 for what is no container.
std::int64_t versionOfFile(const std::filesystem::path& container);

/// What a container holds, as installations unpack it. None where anything but plain files is in
/// it, or more than `limit` bytes.
constexpr std::uint64_t largestUnpacked = static_cast<std::uint64_t>(8) << 30U;
std::optional<FileSet> unpack(std::string_view container, std::uint64_t limit = largestUnpacked);
std::optional<FileSet> unpackFile(const std::filesystem::path& container);

/// Writes the files into a new folder.
void layOut(const FileSet& files, const std::filesystem::path& folder);
/// What a folder holds, hidden files apart. None when one of them cannot be read.
std::optional<FileSet> filesOf(const std::filesystem::path& folder);

/// Makes a container of what was unpacked from one, in the way of installations. None when its own
/// description is not among the files.
std::optional<std::string> pack(const FileSet& files);

/// What every installation does with a file before it takes it: the scanner gets it as its only
/// database, and its own program to scan.
ChildRun trialOf(const std::filesystem::path& database, const Workplace& work);

enum class Verdict { good, refused, unloadable };
Verdict verdictOf(const ChildEnd& trial);

/// Why a trial failed, in one line.
std::string whyRefused(const ChildEnd& trial);

}  // namespace tarnwick::publisher
