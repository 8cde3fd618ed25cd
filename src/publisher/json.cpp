#include "publisher/json.hpp"

#include <nlohmann/json.hpp>

namespace tarnwick::publisher {
namespace {

using Ordered = nlohmann::ordered_json;

Ordered converted(const Json& json);

struct Converter {
  Ordered operator()(std::monostate) const { return nullptr; }
  Ordered operator()(bool truth) const { return truth; }
  Ordered operator()(std::int64_t number) const { return number; }
  Ordered operator()(const std::string& text) const { return text; }
  Ordered operator()(const Json::List& list) const {
    Ordered result = Ordered::array();
    for (const Json& item : list) result.push_back(converted(item));
    return result;
  }
  Ordered operator()(const Json::Object& object) const {
    Ordered result = Ordered::object();
    for (const auto& [key, value] : object) result[key] = converted(value);
    return result;
  }
};

Ordered converted(const Json& json) {
  return std::visit(Converter(), json.value);
}

std::string dumped(const Json& json, int indent) {
  return converted(json).dump(indent, ' ', false, Ordered::error_handler_t::replace);
}

}  // namespace

std::string textOf(const Json& json) {
  constexpr int onOneLine = -1;
  return dumped(json, onOneLine);
}

std::string indentedTextOf(const Json& json) {
  constexpr int indent = 2;
  return dumped(json, indent);
}

std::vector<std::pair<std::string, std::string>> fieldsOf(const std::string& line) {
  std::vector<std::pair<std::string, std::string>> fields;
  const Ordered parsed = Ordered::parse(line, nullptr, false);
  if (!parsed.is_object()) return fields;
  for (const auto& [key, value] : parsed.items()) {
    fields.emplace_back(key, value.is_string() ? value.get<std::string>() : value.dump());
  }
  return fields;
}

}  // namespace tarnwick::publisher
