#include "publisher/workplace.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "base/file_tree.hpp"
#include "base/standard_streams.hpp"
#include "publisher/disk.hpp"
#include "publisher/owner.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {

namespace fs = std::filesystem;

void Workplace::lock(const fs::path& file, const std::string& whatIsWaitedFor) {
  // Who can open the file can hold the lock, and publishing up for ever.
  constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
  lock_.reset(::open(file.c_str(), flags, 0600));
  if (!lock_.isOpen()) throw std::system_error(errno, std::generic_category(), file.string());
  if (::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return;
  static_cast<void>(
      writeFully(STDERR_FILENO, fmt::format("Waiting for another {}\n", whatIsWaitedFor)));
  while (::flock(lock_.get(), LOCK_EX) != 0 && errno == EINTR) {
  }
}

void Workplace::makeAnew(const fs::path& folder) {
  removeTree(folder);
  makeFolder(folder, 0700);
  folder_ = folder;
}

Workplace Workplace::inHome(const Home& home) {
  refuseForeignFiles(home);
  Workplace place;
  place.lock(home.lock, "tarnwick-publish in " + home.folder.string());
  place.makeAnew(home.folder / "work");
  return place;
}

Workplace Workplace::ofMirror(const Home& home) {
  refuseForeignFiles(home);
  if (!isFolder(home.mirror) || ::access(home.mirror.c_str(), W_OK) != 0) {
    refuse(fmt::format("{} is no folder that {} can write to", home.mirror.string(), ownName()));
  }
  makeFolders(home.upstream);
  ::chmod(home.upstream.c_str(), 0700);
  Workplace place;
  place.lock(home.upstream / "lock", "tarnwick-publish mirror in " + home.folder.string());
  place.makeAnew(home.upstream / "work");
  return place;
}

Workplace Workplace::forReading(const Home& home) {
  struct stat status = {};
  const bool owner = ::stat(home.folder.c_str(), &status) == 0 && status.st_uid == ::geteuid();
  return owner && ::access(home.folder.c_str(), W_OK) == 0 ? inHome(home) : elsewhere();
}

Workplace Workplace::elsewhere() {
  const char* const given = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): nobody sets it
  std::string name = fmt::format("{}/tarnwick-publish.XXXXXX", given != nullptr ? given : "/tmp");
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  Workplace place;
  place.folder_ = name;
  return place;
}

Workplace::~Workplace() {
  if (!folder_.empty()) removeTree(folder_);
}

ChildRun Workplace::run(std::string program, std::vector<std::string> arguments,
                        const fs::path& folder) const {
  return {.program = std::move(program),
          .arguments = std::move(arguments),
          .folder = folder.empty() ? folder_ : folder,
          .environment = {{"TMPDIR", folder_.string()}},
          .input = lock_.get()};
}

}  // namespace tarnwick::publisher
