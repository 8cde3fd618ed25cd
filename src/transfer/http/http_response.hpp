#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarnwick {

struct HttpResponse {
  long status = 0;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;                            ///< empty for what went into a file

  /// None when the header is absent or not UTF-8 text. `name` in lower case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;

  /// Takes a header line; of two with one name the later counts. A line without ":" is no header.
  void addHeaderLine(std::string_view line);
};

}  // namespace tarnwick
