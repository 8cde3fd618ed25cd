#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>

#include "base/file_tree.hpp"
#include "driver/commands.hpp"
#include "fuzz.hpp"
#include "vendor/container_archive.hpp"

namespace tarnwick::fuzz {

namespace fs = std::filesystem;

/// The input is the names of an unsigned container's members. The program packs them, and the real
/// tar unpacks them.
void tryInput(std::string_view input) {
  const fs::path folder = fs::absolute("folder");
  const fs::path unpacked = fs::absolute("unpacked");
  for (const fs::path& made : {folder, unpacked}) {
    fs::remove_all(made);
    fs::create_directory(made);
  }
  std::set<std::string> names;
  for (const std::string& text : splitByModel(input, '~')) {
    const std::string name = text.substr(0, 255).c_str();
    if (name.empty() || name == "." || name == ".." || name.find('/') != name.npos) continue;
    std::ofstream(folder / name) << "x";
    names.insert(name);
  }
  const fs::path archive = folder / "VestRUM.tar.gz";
  if (!packFolder(folder, archive)) {
    const std::string all(input);
    require(names.empty() || all.find_first_of("-\\") != all.npos, "plain names are packed");
    return;
  }
  names.erase(archive.filename());
  const ProgramResult result = runProgram(
      {.executable = "/usr/bin/tar", .arguments = {"-xzf", archive}, .workingDirectory = unpacked});
  const auto found = namesIn(unpacked).value_or(std::vector<std::string>{});
  require(result.status.isSuccess() && std::set(found.begin(), found.end()) == names,
          "exactly the files of the folder are packed");
}

}  // namespace tarnwick::fuzz
