#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnwick::publisher {

/// What the command line says.
struct Invocation {
  std::optional<std::string> home;
  std::string command;             ///< one that there is; empty only with `help`
  std::vector<std::string> words;  ///< what is neither an option nor its value
  std::map<std::string, std::vector<std::string>> options;  ///< values by name, such as "--keep"
  bool help = false;

  [[nodiscard]] bool has(const std::string& option) const { return options.contains(option); }
  /// The last value of an option.
  [[nodiscard]] std::optional<std::string> value(const std::string& option) const;
};

/// Throws Misuse for what is no command line.
Invocation parseCommandLine(int argc, const char* const* argv);

/// Throws Misuse unless there are exactly so many words.
void expectWords(const Invocation& invocation, std::size_t wanted);

}  // namespace tarnwick::publisher
