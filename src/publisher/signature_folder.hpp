#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "publisher/archive.hpp"
#include "publisher/home.hpp"

namespace tarnwick::publisher {

/// The vendor's folder of signature files, on its way into a container. A container takes one file
/// of each kind, named like itself. Files of the same kind are joined, so that a folder may hold
/// any number of them.
class SignatureFolder {
 public:
  /// Refuses what could not be released: links, files of the home, what is no text.
  SignatureFolder(const std::filesystem::path& folder, const Home& home);

  /// The files for the container, as VestRUM.KIND, and COPYING.
  [[nodiscard]] const FileSet& joined() const { return joined_; }

  /// Refuses with what ClamAV said about a joined file, in the vendor's own words: the file and
  /// line that went into it. `tried` are the joined files as ClamAV saw them, whose lines may stand
  /// in another order.
  [[noreturn]] void refuseFor(std::int64_t version, const std::string& report,
                              const FileSet& tried) const;

  /// Refuses where the container lacks a kind of file: sigtool passes over an unknown extension
  /// without a word.
  void requireAllIn(const FileSet& container) const;

  /// What the vendor may want to know: hidden files and lines that ClamAV leaves out, lines twice.
  [[nodiscard]] std::vector<std::string> remarks() const;

 private:
  /// Lines of a joined file, from `first` on, that came from a file of the vendor's.
  struct Origin {
    std::string kind;
    std::int64_t first = 1;
    std::filesystem::path file;
  };

  void takeIn(const std::filesystem::path& file, const Home& home);
  void join(const std::filesystem::path& file, const std::string& kind, const std::string& content);
  [[nodiscard]] const Origin* originOf(const std::string& kind, std::int64_t line) const;

  FileSet joined_;
  std::vector<Origin> origins_;
  std::vector<std::filesystem::path> hidden_;
};

}  // namespace tarnwick::publisher
