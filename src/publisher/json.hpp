#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace tarnwick::publisher {

/// What a command has to tell a program.
struct Json {
  using List = std::vector<Json>;
  using Object = std::vector<std::pair<std::string, Json>>;

  Json() = default;
  Json(bool truth) : value(truth) {}                    // NOLINT(*-explicit-*)
  Json(std::int64_t number) : value(number) {}          // NOLINT(*-explicit-*)
  Json(std::string text) : value(std::move(text)) {}    // NOLINT(*-explicit-*)
  Json(const char* text) : value(std::string(text)) {}  // NOLINT(*-explicit-*)
  Json(List list) : value(std::move(list)) {}           // NOLINT(*-explicit-*)
  Json(Object object) : value(std::move(object)) {}     // NOLINT(*-explicit-*)

  std::variant<std::monostate, bool, std::int64_t, std::string, List, Object> value;
};

/// On one line, with keys in their order. What is no UTF-8 is replaced.
std::string textOf(const Json& json);

/// The same with a line and an indent for each value, for `--json`.
std::string indentedTextOf(const Json& json);

/// One line of a journal, read back: texts and numbers by key, as text. Empty for what is no
/// object.
std::vector<std::pair<std::string, std::string>> fieldsOf(const std::string& line);

}  // namespace tarnwick::publisher
