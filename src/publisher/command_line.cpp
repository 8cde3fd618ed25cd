#include "publisher/command_line.hpp"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <span>

#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

struct Option {
  std::string_view name;
  std::string_view needs;  ///< empty for a switch
};

struct Command {
  std::string_view name;
  std::span<const Option> options = {};
};

constexpr Option contentHost{"--content-host", "a value"};
constexpr Option linksHost{"--links-host", "a value"};
constexpr Option linkSecret{"--link-secret", "a value"};
constexpr Option mirrorHost{"--mirror-host", "a value"};
constexpr Option certificate{"--certificate", "a value"};
constexpr Option certificateKey{"--certificate-key", "a value"};

constexpr std::array checkOptions{Option{"--from", "a URL"},
                                  Option{"--max-age", "days"},
                                  Option{"--json", ""},
                                  contentHost,
                                  linksHost,
                                  linkSecret,
                                  mirrorHost,
                                  certificate,
                                  certificateKey};
constexpr std::array pushOptions{Option{"--timeout", "seconds"},
                                 Option{"--first", ""},
                                 Option{"--dry-run", ""},
                                 Option{"--json", ""},
                                 contentHost,
                                 linksHost,
                                 linkSecret,
                                 mirrorHost,
                                 certificate,
                                 certificateKey};
constexpr std::array siteOptions{Option{"--remember", ""},
                                 contentHost,
                                 linksHost,
                                 linkSecret,
                                 mirrorHost,
                                 certificate,
                                 certificateKey};
constexpr std::array releaseOptions{Option{"--after", "a version"}, Option{"--force", ""},
                                    Option{"--dry-run", ""}, Option{"--json", ""}};
constexpr std::array statusOptions{Option{"--json", ""}, contentHost, linksHost, linkSecret};
constexpr std::array logOptions{Option{"--json", ""}};
constexpr std::array pruneOptions{Option{"--keep", "a number"}};

constexpr std::array commands{
    Command{"init"},
    Command{"release", releaseOptions},
    Command{"log", logOptions},
    Command{"status", statusOptions},
    Command{"definitions"},
    Command{"withdraw"},
    Command{"mirror"},
    Command{"check", checkOptions},
    Command{"prune", pruneOptions},
    Command{"push", pushOptions},
    Command{"site", siteOptions},
};

/// CLI11's own description of the commands and their options.
class Parser {
 public:
  Parser() {
    application_.set_help_flag();
    application_.add_flag("-h,--help", help_);
    application_.add_option("--home", home_)->multi_option_policy(takeLast);
    application_.require_subcommand(0, 1);
    application_.allow_extras();
    for (const Command& command : commands) add(command);
  }

  [[nodiscard]] Invocation parse(int argc, const char* const* argv) {
    try {
      application_.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      misunderstood(error);
    }
    Invocation invocation;
    if (!home_.empty()) invocation.home = home_;
    invocation.help = help_;
    const auto used = application_.get_subcommands();
    if (used.empty()) {
      if (help_) return invocation;
      const auto rest = application_.remaining();
      throw Misuse(rest.empty() ? "no command given" : "no such command: " + rest.front());
    }
    read(*used.front(), invocation);
    return invocation;
  }

 private:
  static constexpr auto takeLast = CLI::MultiOptionPolicy::TakeLast;

  void add(const Command& command) {
    CLI::App* const added = application_.add_subcommand(std::string(command.name));
    added->set_help_flag();
    added->add_flag("--help", help_);
    added->allow_extras();
    for (const Option& option : command.options) {
      const std::string name(option.name);
      if (option.needs.empty()) {
        added->add_flag(name);
      } else {
        added->add_option(name)->expected(1)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
      }
    }
  }

  static void read(const CLI::App& used, Invocation& invocation) {
    invocation.command = used.get_name();
    invocation.words = used.remaining();
    for (const CLI::Option* const option : used.get_options()) {
      if (option->count() > 0) invocation.options[option->get_name()] = option->results();
    }
  }

  /// The name of an option stands before the colon in what CLI11 says.
  [[noreturn]] void misunderstood(const CLI::ParseError& error) const {
    const std::string said = error.what();
    const std::string name = said.substr(0, said.find(':'));
    if (name == "--home") throw Misuse("--home needs a folder");
    const auto used = application_.get_subcommands();
    const std::string command = used.empty() ? "" : used.front()->get_name();
    for (const Command& known : commands) {
      if (known.name != command) continue;
      for (const Option& option : known.options) {
        if (option.name == name) {
          throw Misuse(fmt::format("{}: {} needs {}", command, name, option.needs));
        }
      }
    }
    throw Misuse(said);
  }

  CLI::App application_;
  std::string home_;
  bool help_ = false;
};

void refuseUnknownOptions(const Invocation& invocation) {
  const auto* const known =
      std::ranges::find(commands, std::string_view(invocation.command), &Command::name);
  if (known == commands.end() || known->options.empty()) return;
  for (const std::string& word : invocation.words) {
    if (!word.starts_with('-')) continue;
    throw Misuse(
        fmt::format("{}: no such option: {}", invocation.command, word.substr(0, word.find('='))));
  }
}

}  // namespace

std::optional<std::string> Invocation::value(const std::string& option) const {
  const auto found = options.find(option);
  return found == options.end() ? std::nullopt : std::optional(found->second.back());
}

Invocation parseCommandLine(int argc, const char* const* argv) {
  Invocation invocation = Parser().parse(argc, argv);
  if (!invocation.help) refuseUnknownOptions(invocation);
  return invocation;
}

void expectWords(const Invocation& invocation, std::size_t wanted) {
  if (invocation.words.size() == wanted) return;
  throw Misuse(fmt::format("{} takes {}, not {}", invocation.command,
                           counted(static_cast<std::int64_t>(wanted), "argument"),
                           invocation.words.size()));
}

}  // namespace tarnwick::publisher
