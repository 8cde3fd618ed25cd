#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "publisher/home.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// The source of ClamAV's databases, asked by a freshclam of the kit's own, which works in a folder
/// of its own and verifies what it fetches.
class Upstream {
 public:
  /// Both must outlive this object. Sweeps what a freshclam left that was cut short.
  Upstream(const Home& home, const Workplace& work);

  /// Brings the containers in the folder forward, or refuses.
  void fetchContainers();

  /// Asks for patches of a database, one after the other until one is not to be had.
  void askForPatches(const std::string& name, const std::vector<std::int64_t>& versions);

  /// Asks for one file that need not be there.
  void askForFile(const std::string& name);

  /// Whether the last answer was that there is no such file, rather than a failure.
  [[nodiscard]] bool saidThereIsNone() const;
  /// What freshclam said first of what went wrong.
  [[nodiscard]] std::string whyItFailed() const;

  [[nodiscard]] std::filesystem::path file(const std::string& name) const {
    return home_.upstream / name;
  }

 private:
  void configure(const std::vector<std::string>& lines) const;
  int runFreshclam(std::vector<std::string> arguments);
  void refusePause() const;

  const Home& home_;
  const Workplace& work_;
  std::string vendorLines_;
  std::string source_;
  std::string report_;
};

}  // namespace tarnwick::publisher
