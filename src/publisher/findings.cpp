#include "publisher/findings.hpp"

#include <fmt/format.h>

#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

constexpr std::string_view damaged = "Damaged: ";

}  // namespace

void Findings::damage(std::string_view text) {
  lines_.push_back(fmt::format("{}{}{}", damaged, where_, withoutControls(text)));
  ++damages_;
}

void Findings::note(std::string_view line) {
  lines_.emplace_back(line);
}

void Findings::append(const Findings& others) {
  lines_.insert(lines_.end(), others.lines_.begin(), others.lines_.end());
  damages_ += others.damages_;
}

void Findings::appendAsOurs(const Findings& others) {
  for (const std::string& line : others.lines_) {
    if (line.starts_with(damaged)) {
      damage(line.substr(damaged.size() + others.where_.size()));
    } else {
      note(line);
    }
  }
}

Json::Object factsOf(const Findings& findings, std::int64_t version) {
  Json::List found;
  for (const std::string& line : findings.lines()) found.emplace_back(line);
  return {{"sound", findings.damages() == 0},
          {"version", version},
          {"damages", findings.damages()},
          {"found", std::move(found)}};
}

void Findings::print() const {
  for (const std::string& line : lines_) say(line);
}

}  // namespace tarnwick::publisher
