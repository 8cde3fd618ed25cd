#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <filesystem>

#include "base/file_descriptor.hpp"
#include "base/shell_word.hpp"
#include "fuzz.hpp"

namespace tarnwick::fuzz {
namespace {

/// A shell that reads command lines until this process ends.
class Shell {
 public:
  explicit Shell(const char* path) {
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "a connection");
    if (::fork() == 0) {
      ::dup2(ends[1], STDIN_FILENO);
      ::dup2(ends[1], STDOUT_FILENO);
      ::execl(path, "sh", nullptr);
      ::_exit(127);
    }
    connection_.reset(ends[0]);
    ::close(ends[1]);
    const timeval patience{.tv_sec = 5, .tv_usec = 0};
    ::setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  }

  /// The shell's output for a command line, up to `end`, or what it prints within five seconds.
  std::string answer(const std::string& commandLine, std::string_view end) {
    require(writeFully(connection_.get(), commandLine + '\n'), "the shell reads");
    std::string answer;
    std::array<char, 65536> buffer;
    while (!answer.ends_with(end)) {
      const ssize_t count = readSome(connection_.get(), buffer);
      if (count <= 0) break;
      answer.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return answer;
  }

 private:
  FileDescriptor connection_;
};

}  // namespace

/// The input is paths that the program would put into command lines, alone and before a pattern.
void tryInput(std::string_view input) {
  static std::array<Shell, 2> shells{Shell("/bin/dash"), Shell("/bin/bash")};
  for (const char* const match : {"a", "b", "ab"}) std::filesystem::create_directory(match);
  auto words = splitByModel(input, '\n');
  words.emplace_back(input);
  for (const std::string& text : words) {
    const std::string word = text.c_str();
    if (!isPlainShellWord(word)) continue;
    const std::string pattern = word + "/no-such-*-file";
    const std::string end = "<" + word + "><" + pattern + ">\n";
    for (Shell& shell : shells) {
      require(shell.answer("printf '<%s>' " + word + " " + pattern + "; echo", end) == end,
              "the shell does not interpret the word");
    }
  }
}

}  // namespace tarnwick::fuzz
