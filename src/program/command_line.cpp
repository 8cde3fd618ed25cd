#include "program/command_line.hpp"

#include <cstddef>
#include <string_view>

#include "base/text_rules.hpp"

namespace tarnwick {
namespace {

constexpr std::string_view removeOldFirst = "--remove-old-first";
constexpr std::string_view dataDirectoryWord = "datadir";

/// Callers rely on this: cuts the first six characters, whatever they are, so that "--logfile=/x"
/// names the log "ile=/x".
void takeLog(RunContext& context, const std::string& argument) {
  constexpr std::size_t cut = 6;
  const std::string_view path = dropCharacters(argument, cut);
  if (path.empty()) return;
  context.logFile.open(std::string(path));
}

/// Cuts the first eight characters, whatever they are: the word and normally a "=".
void takeDataDirectory(RunContext& context, std::string_view fromWordOn) {
  if (fromWordOn == dataDirectoryWord) return;
  context.dataDirectory = dropCharacters(fromWordOn, dataDirectoryWord.size() + 1);
}

void takeArgument(RunContext& context, const std::string& argument) {
  context.freshclamCommand += argument + ' ';
  if (argument.find("log") != std::string::npos) takeLog(context, argument);
  if (argument.find("quiet") != std::string::npos) context.quietMode = true;
  const std::size_t word = argument.find(dataDirectoryWord);
  if (word != std::string::npos) {
    takeDataDirectory(context, std::string_view(argument).substr(word));
  }
}

}  // namespace

bool asksForVersionReport(const Arguments& arguments) {
  return !arguments.empty() && (arguments.front() == "--version" || arguments.front() == "-V");
}

bool asksToRemoveOldFirst(const Arguments& arguments) {
  return !arguments.empty() && arguments.front() == removeOldFirst;
}

void readArguments(RunContext& context, const Arguments& arguments) {
  context.freshclamCommand = context.freshclamPath + ' ';
  for (const std::string& argument : arguments) {
    if (argument != removeOldFirst) takeArgument(context, argument);
  }
  context.freshclamCommand += "--no-warnings";
}

}  // namespace tarnwick
