#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

/// How a command ends early. These two types are thrown where a command finds out and caught in one
/// place, `runPublisher`, so that everything in between is cleaned up by its owner.
namespace tarnwick::publisher {

/// What is wrong and what to do about it, a line each. Exit status 1.
class Refusal : public std::exception {
 public:
  explicit Refusal(std::vector<std::string> lines) : lines_(std::move(lines)) {}
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  [[nodiscard]] const char* what() const noexcept override { return "refused"; }

 private:
  std::vector<std::string> lines_;
};

/// The command line means nothing. Exit status 2.
class Misuse : public std::exception {
 public:
  explicit Misuse(std::string line) : line_(std::move(line)) {}
  [[nodiscard]] const std::string& line() const { return line_; }
  [[nodiscard]] const char* what() const noexcept override { return line_.c_str(); }

 private:
  std::string line_;
};

/// Throws a Refusal with these lines.
template <typename... Lines>
[[noreturn]] void refuse(Lines&&... lines) {
  throw Refusal({std::string(std::forward<Lines>(lines))...});
}

/// A line on standard output, or on standard error behind the program's name. Neither fails when
/// nobody reads it.
void say(std::string_view line);
void sayWrong(std::string_view line);

/// A number and what it counts: 1 script, 2 scripts.
std::string counted(std::int64_t number, std::string_view noun);

/// 230 bytes, 13 kB, 2.4 MB.
std::string sizeInWords(std::int64_t bytes);

/// What others said, fit for a terminal: printable, and its first 200 bytes.
std::string presentable(std::string_view text);

/// The same without a limit on its length.
std::string withoutControls(std::string_view text);

/// Of what a program said, the first line that is not empty; empty when there is none.
std::string_view firstLine(std::string_view text);

/// Of what one of ClamAV's programs said, the first line that tells of an error.
std::string firstError(std::string_view text);

}  // namespace tarnwick::publisher
