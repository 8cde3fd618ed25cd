#include <algorithm>
#include <filesystem>

#include "fuzz.hpp"
#include "program/command_line.hpp"

namespace tarnwick::fuzz {

/// The text without its first `count` characters; empty if it is shorter, or not UTF-8.
static std::u32string behind(std::size_t count, std::string_view text) {
  const auto characters = charactersByModel(text).value_or(U"");
  return characters.size() > count ? characters.substr(count) : U"";
}

/// Whether the program would open a log outside the working directory; such inputs are skipped.
static bool opensElsewhere(const std::string& argument) {
  return argument.find("log") != argument.npos && argument.find('/') != argument.npos &&
         (argument.find("..") != argument.npos || !charactersByModel(argument) ||
          behind(6, argument).starts_with(U'/'));
}

static void requireContext(const RunContext& context, const Arguments& arguments) {
  std::string command = context.freshclamPath;
  std::u32string log;
  std::u32string directory = *charactersByModel(RunContext().dataDirectory);
  bool quiet = false;
  for (const std::string& argument : arguments) {
    if (argument == "--remove-old-first") continue;
    if (!charactersByModel(argument)) return;
    command += " " + argument;
    quiet = quiet || argument.find("quiet") != argument.npos;
    if (argument.find("log") != argument.npos && !behind(6, argument).empty()) {
      log = behind(6, argument);
    }
    const auto fromWordOn = argument.substr(std::min(argument.find("datadir"), argument.size()));
    if (fromWordOn.size() > 7) directory = behind(8, fromWordOn);
  }
  require(context.freshclamCommand == command + " --no-warnings", "command");
  require(context.quietMode == quiet, "quiet mode");
  require(context.logFile.path().has_value() == !log.empty(), "log wanted");
  require(charactersByModel(context.logFile.path().value_or("")) == log, "log path");
  require(charactersByModel(context.dataDirectory) == directory, "data directory");
}

void tryInput(std::string_view input) {
  Arguments arguments = splitByModel(input, '~');
  for (std::string& argument : arguments) argument = argument.c_str();  // a NUL ends it
  if (std::ranges::any_of(arguments, opensElsewhere)) return;
  RunContext context;
  readArguments(context, arguments);
  requireContext(context, arguments);
  for (const auto& log : std::filesystem::directory_iterator(".")) std::filesystem::remove(log);
}

}  // namespace tarnwick::fuzz
