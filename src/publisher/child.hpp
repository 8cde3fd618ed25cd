#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/file_descriptor.hpp"

namespace tarnwick::publisher {

/// The path of a program, as the shell finds it.
std::optional<std::string> findProgram(const std::string& name);

enum class ChildOutput {
  both,    ///< standard output and standard error, as they come
  errors,  ///< standard error alone; standard output goes nowhere
};

struct ChildRun {
  std::string program;  ///< a name to be found, or a path
  std::vector<std::string> arguments;
  std::filesystem::path folder = {};                    ///< to work in; empty for ours
  std::map<std::string, std::string> environment = {};  ///< besides ours
  /// What its standard input is. A lock that is handed over so stays held while the child lives,
  /// and reads as empty. -1 is an empty file.
  int input = -1;
  ChildOutput output = ChildOutput::both;
  std::optional<std::chrono::seconds> limit = {};  ///< on its whole life
};

struct ChildEnd {
  int status = -1;     ///< the exit status, or 128 and the number of the signal that killed it
  std::string output;  ///< the first 64 KiB
  bool ranOutOfTime = false;

  [[nodiscard]] bool isGood() const { return status == 0; }
};

/// A program at work, with default signal dispositions and none of our descriptors. Its output is
/// read only by `wait`, so that something else can be done meanwhile; it must not be much until
/// then.
class Child {
 public:
  explicit Child(const ChildRun& run);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  /// Kills it if nobody waited for its end.
  ~Child();

  /// What of its output outlives it, in the hands of a program of its own, is not waited for.
  ChildEnd wait();

 private:
  void drain(std::string& into);
  void endIfLate(ChildEnd& end) const;

  pid_t id_ = -1;
  FileDescriptor output_;
  std::optional<std::chrono::steady_clock::time_point> deadline_;
};

ChildEnd runChild(const ChildRun& run);

}  // namespace tarnwick::publisher
