#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "publisher/archive.hpp"

namespace tarnwick::publisher {

/// Whether the order of the lines in files of this kind means nothing to ClamAV.
bool isWithoutOrder(std::string_view kind);

/// The same lines as `given`, as often: those that are published keep their order, and the others
/// follow. So a shuffled file changes nothing.
std::string inPublishedOrder(std::string_view given, std::string_view published);

/// Every file for the next container, its lines in the order of the published one where that means
/// nothing.
FileSet inPublishedOrder(const FileSet& given, const FileSet& published);

/// How many lines stand there once more than once, comments and empty lines apart.
std::int64_t linesTwice(std::string_view text);

/// Lines that ClamAV passes over.
std::int64_t commentLines(std::string_view text);

/// How many lines one version adds to another and removes from it, all kinds together.
struct LineChanges {
  std::int64_t added = 0;
  std::int64_t removed = 0;
  std::int64_t before = 0;  ///< how many there were
  std::string lostKind;     ///< one that had lines, and has none any more; else empty
};

LineChanges lineChanges(const FileSet& before, const FileSet& after);

}  // namespace tarnwick::publisher
