#include "transfer/http/answer_limits.hpp"

namespace tarnwick {

void AnswerLimits::countBody(std::uint64_t bytes, Clock::time_point now) {
  body_ += bytes;
  if (kind_ == AnswerKind::file) lastProgress_ = now;
}

std::optional<std::string_view> AnswerLimits::exceeded(Clock::time_point now) const {
  // A chunk or a TLS record of a single byte costs about as many more.
  constexpr std::uint64_t mostOverheadOfAByte = 16;
  const std::uint64_t mostReceived = largestHeaders + (1 + mostOverheadOfAByte) * body_;
  if (body_ > largestBody_ || headers_ > largestHeaders || received_ > mostReceived) {
    return "The answer is larger than allowed";
  }
  if (now - lastProgress_ > longestText) return "The answer takes longer than allowed";
  return std::nullopt;
}

}  // namespace tarnwick
