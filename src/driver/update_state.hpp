#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/file_failure.hpp"
#include "platform/platform.hpp"

namespace tarnwick {

/// What the tool remembers between runs: for each vendor file the "Last-Modified" text under which
/// it was last fetched or confirmed. A commit replaces all of it, so that what a run did not
/// record is forgotten.
class UpdateState {
 public:
  /// With the stored values: the current domain's, then the older one's when that exists.
  static UpdateState open();

  /// The current domain's value or, failing that, the older one's.
  [[nodiscard]] std::optional<std::string> storedValue(std::string_view key) const;

  /// Puts a value among the new ones; an absent value removes the key from them.
  void record(std::string_view key, const std::optional<std::string>& value);

  /// Replaces the current domain by the new values. None on success.
  [[nodiscard]] std::optional<FileFailure> commit() const;

  /// Replaces the older domain by an empty one, whether it existed or not.
  static void retireOlderDomain();

 private:
  UpdateState(platform::Preferences current, platform::Preferences older);

  platform::Preferences current_;
  platform::Preferences older_;
  platform::Preferences newValues_;
};

}  // namespace tarnwick
