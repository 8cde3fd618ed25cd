#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnwick {

enum class AnswerKind {
  text,  ///< has a limit on the whole
  file,  ///< may take as long as its body goes on arriving
};

/// Bounds what one request may cost in bytes and in time, redirects included. A limit on idle time
/// does not: interim answers, trailers and chunk extensions without end arrive at full speed.
class AnswerLimits {
 public:
  using Clock = std::chrono::steady_clock;

  /// Of all header lines, trailers included, because libcurl keeps them in memory.
  static constexpr std::uint64_t largestHeaders = 512U << 10U;
  /// Of a text, and of the time in which nothing of a file's body arrives.
  static constexpr std::chrono::minutes longestText{10};

  AnswerLimits(AnswerKind kind, std::uint64_t largestBody, Clock::time_point now = Clock::now())
      : kind_(kind), largestBody_(largestBody), lastProgress_(now) {}

  void countBody(std::uint64_t bytes, Clock::time_point now);
  void countHeaderLine(std::uint64_t bytes) { headers_ += bytes; }
  /// Counts what came over the connection, be it body or not.
  void countReceived(std::uint64_t bytes) { received_ += bytes; }

  /// Why the request must end; none while it may go on.
  [[nodiscard]] std::optional<std::string_view> exceeded(Clock::time_point now) const;

  [[nodiscard]] std::uint64_t largestBody() const { return largestBody_; }

 private:
  AnswerKind kind_;
  std::uint64_t largestBody_;
  std::uint64_t body_ = 0;
  std::uint64_t headers_ = 0;
  std::uint64_t received_ = 0;
  Clock::time_point lastProgress_;
};

}  // namespace tarnwick
