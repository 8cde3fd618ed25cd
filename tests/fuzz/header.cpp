#include "vendor/database_header.hpp"

#include <algorithm>

#include "fuzz.hpp"
#include "vendor/interface_names.hpp"

namespace tarnwick::fuzz {

static std::optional<std::string> lineByModel(std::string_view content) {
  if (content.empty()) return std::nullopt;
  const std::string block(content.substr(0, 512));
  const std::size_t last = block.find_last_not_of(" \r\n");
  const std::string text = block.substr(0, last == block.npos ? 1 : last + 1).c_str();
  if (!charactersByModel(text)) return std::nullopt;
  return text.substr(0, text.find('\n'));
}

void tryInput(std::string_view input) {
  RunContext context;
  context.quietMode = true;
  const std::string file = fileWith(input);
  const auto line = readDatabaseHeader(context, file);
  require(line == lineByModel(input), "the first line is the header");
  const auto fields = headerFieldsOfFile(context, file);
  require(fields.has_value() == (line && std::ranges::count(*line, ':') == 8), "nine fields");
  require(databaseVersionOfFile(context, file) == (fields ? integerByModel((*fields)[2]) : 0),
          "the third field is the version");
  require(databaseBuildDateOfFile(context, file).has_value() == fields.has_value(), "a time");
}

}  // namespace tarnwick::fuzz
