#include "publisher/findings.hpp"

#include <fmt/format.h>

#include "publisher/refusal.hpp"

namespace tarnwick::publisher {

void Findings::damage(std::string_view text) {
  lines_.push_back(fmt::format("Damaged: {}{}", where_, withoutControls(text)));
  ++damages_;
}

void Findings::note(std::string_view line) {
  lines_.emplace_back(line);
}

void Findings::append(const Findings& others) {
  lines_.insert(lines_.end(), others.lines_.begin(), others.lines_.end());
  damages_ += others.damages_;
}

void Findings::print() const {
  for (const std::string& line : lines_) say(line);
}

}  // namespace tarnwick::publisher
