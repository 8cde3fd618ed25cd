#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "publisher/json.hpp"

namespace tarnwick::publisher {

/// What a check found, in order. Servers have a say in what is wrong with them, and none in how a
/// terminal shows it.
class Findings {
 public:
  /// `where` stands before each damage; empty for the home.
  explicit Findings(std::string where = {}) : where_(std::move(where)) {}

  void damage(std::string_view text);
  /// Worth saying, and no damage.
  void note(std::string_view line);
  void append(const Findings& others);
  /// Damages of the home, found in a copy of it.
  void appendAsOurs(const Findings& others);
  /// An empty list for the same place.
  [[nodiscard]] Findings ofTheSamePlace() const { return Findings(where_); }

  [[nodiscard]] std::int64_t damages() const { return damages_; }
  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }
  void print() const;

 private:
  std::string where_;
  std::vector<std::string> lines_;
  std::int64_t damages_ = 0;
};

/// For `--json`: what was found, and whether that is no damage.
Json::Object factsOf(const Findings& findings, std::int64_t version);

}  // namespace tarnwick::publisher
