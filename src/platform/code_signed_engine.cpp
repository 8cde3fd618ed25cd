#include <spawn.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <string>

#include "platform/platform.hpp"

extern char** environ;

// For systems that check the signature with which a maker signs a program.
namespace tarnwick::platform {

namespace fs = std::filesystem;

bool engineSignatureIsSound(const fs::path& engine) {
  std::string program = "/usr/bin/codesign";
  std::string verify = "--verify";
  std::string path = engine.string();
  const std::array<char*, 4> arguments{program.data(), verify.data(), path.data(), nullptr};
  pid_t child = 0;
  if (::posix_spawn(&child, program.c_str(), nullptr, nullptr, arguments.data(), environ) != 0) {
    return false;
  }
  int status = 0;
  pid_t ended = 0;
  do {
    ended = ::waitpid(child, &status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace tarnwick::platform
