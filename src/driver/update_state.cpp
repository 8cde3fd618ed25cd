#include "driver/update_state.hpp"

#include <utility>

namespace tarnwick {
namespace {

constexpr std::string_view currentDomain = "uk.co.pellawaysoftware.vestrum.tarnwick";
constexpr std::string_view olderDomain = "uk.co.tobrennel.vestrum.tarnwick";

}  // namespace

UpdateState::UpdateState(platform::Preferences current, platform::Preferences older)
    : current_(std::move(current)), older_(std::move(older)) {}

UpdateState UpdateState::open() {
  return {platform::readPreferences(currentDomain).value_or(platform::Preferences{}),
          platform::readPreferences(olderDomain).value_or(platform::Preferences{})};
}

std::optional<std::string> UpdateState::storedValue(std::string_view key) const {
  for (const platform::Preferences* const domain : {&current_, &older_}) {
    const auto found = domain->find(key);
    if (found != domain->end()) return found->second;
  }
  return std::nullopt;
}

void UpdateState::record(std::string_view key, const std::optional<std::string>& value) {
  if (value) {
    newValues_.insert_or_assign(std::string(key), *value);
  } else {
    newValues_.erase(std::string(key));
  }
}

std::optional<FileFailure> UpdateState::commit() const {
  return platform::replacePreferences(currentDomain, newValues_);
}

void UpdateState::retireOlderDomain() {
  // The current domain is in the same folder, so the vendor phase has already logged the reason.
  static_cast<void>(platform::replacePreferences(olderDomain, {}));
}

}  // namespace tarnwick
