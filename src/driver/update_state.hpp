#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/file_failure.hpp"
#include "platform/platform.hpp"

namespace tarnwick {

/// The state kept between runs: for each vendor file, the "Last-Modified" text that the server gave
/// when a run last fetched or confirmed the file. A commit replaces the whole state, so it forgets
/// every value that the run did not record.
class UpdateState {
 public:
  /// Reads the stored values of the current domain and of the older one.
  [[nodiscard]] static UpdateState open();

  /// The current domain's value, or the older domain's if the current one has none.
  [[nodiscard]] std::optional<std::string> storedValue(std::string_view key) const;

  /// Adds a value to those that commit will write; none removes the key from them.
  void record(std::string_view key, const std::optional<std::string>& value);

  /// Replaces the current domain by the recorded values. Returns none on success.
  [[nodiscard]] std::optional<FileFailure> commit() const;

  /// Replaces the older domain by an empty one, whether it existed or not. Ignores a failure.
  static void retireOlderDomain();

 private:
  UpdateState(platform::Preferences current, platform::Preferences older);

  platform::Preferences current_;
  platform::Preferences older_;
  platform::Preferences newValues_;
};

}  // namespace tarnwick
