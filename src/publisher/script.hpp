#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "publisher/archive.hpp"

namespace tarnwick::publisher {

/// The lines of one file while scripts change them. A line keeps one place for good: its number in
/// the file as it was, or, if a script added it, a number after those. Which place is the n-th line
/// now is found in a binary indexed tree of the lines that are left, so that a removal costs the
/// logarithm of the length and not the length.
class ScriptedLines {
 public:
  explicit ScriptedLines(std::string_view content);

  /// Numbers of lines begin with 1, and are those of the file as the script found it.
  struct Change {
    std::int64_t line = 0;
    std::string_view start;                    ///< what the line must begin with
    std::optional<std::string_view> now = {};  ///< none removes it
  };

  /// False, with nothing changed that matters any more, when one of the changes does not apply.
  /// Texts must outlive this object.
  [[nodiscard]] bool apply(std::vector<Change> changes, const std::vector<std::string_view>& added);

  [[nodiscard]] std::string content() const;

 private:
  [[nodiscard]] std::size_t placeOf(std::int64_t line) const;
  void remove(std::size_t place);
  void grow();

  std::vector<std::string_view> lines_;  ///< by place
  std::vector<bool> isLeft_;
  std::vector<std::int32_t> left_;  ///< the tree; its size is a power of two and one
  std::int64_t count_ = 0;
  bool endsWithoutLineFeed_ = false;
};

/// A set of files, and scripts that are applied to it as installations apply them.
class Replay {
 public:
  /// Both must outlive this object, and so must every script.
  explicit Replay(const FileSet& files);

  /// Applies one script. False when it does not apply; the files are then of no use.
  [[nodiscard]] bool apply(std::string_view script);

  [[nodiscard]] FileSet result() const;

 private:
  struct Block;
  [[nodiscard]] bool take(std::string_view line, Block& block);
  [[nodiscard]] bool close(Block& block);

  std::map<std::string, ScriptedLines, std::less<>> files_;
};

}  // namespace tarnwick::publisher
