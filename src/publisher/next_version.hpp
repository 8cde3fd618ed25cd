#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "publisher/container.hpp"
#include "publisher/line_order.hpp"
#include "publisher/signature_folder.hpp"
#include "publisher/workplace.hpp"

namespace tarnwick::publisher {

/// What one release starts from.
struct ReleaseStart {
  const Home& home;
  const Workplace& work;
  const SignatureFolder& signatures;
  std::string privateKey;
  FileSet published;         ///< empty before the first release
  std::int64_t version = 0;  ///< the published one
  std::int64_t number = 1;   ///< the next
};

/// A version on its way: built, tried, and put in place.
class NextVersion {
 public:
  /// Must outlive this object.
  explicit NextVersion(const ReleaseStart& start);

  /// Whether this is what is published already.
  [[nodiscard]] bool isNothingNew() const;

  void build();
  /// The scanner loads the container while sigtool compares it with the one before: neither needs
  /// the other, and with many signatures both take long.
  void tryAndCompare() const;
  /// Nothing is visible before the version file says so, and that, the container and its signature
  /// become visible together.
  void putInPlace() const;

  [[nodiscard]] LineChanges changes() const;
  [[nodiscard]] std::uintmax_t containerSize() const;
  /// 0 without a script.
  [[nodiscard]] std::uintmax_t scriptSize() const;
  [[nodiscard]] bool hasScript() const {
    return start_.version + 1 == start_.number && start_.version > 0;
  }
  [[nodiscard]] std::int64_t signatureCount() const;
  [[nodiscard]] std::string digest() const;

 private:
  [[nodiscard]] ChildEnd buildContainer() const;
  void buildScript() const;
  void tryScript() const;
  void beginAnew() const;
  [[nodiscard]] std::filesystem::path path(const char* name) const {
    return start_.work.folder() / name;
  }
  [[nodiscard]] std::filesystem::path container() const { return path("new") / "VestRUM.cud"; }
  [[nodiscard]] std::filesystem::path scriptFile() const;

  const ReleaseStart& start_;
  FileSet files_;  ///< the signatures, in their order
  FileSet built_;  ///< what sigtool made of them
};

}  // namespace tarnwick::publisher
