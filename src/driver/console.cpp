#include "driver/console.hpp"

#include "base/standard_streams.hpp"

namespace tarnwick {

void writeMessage(const RunContext& context, std::string_view format, const std::string& line) {
  if (!context.quietMode) writeToStandardOutput(line);
  // The interface requires this rule, but it never applies: the only line with this beginning is
  // the progress of a definitions file, and the downloader writes that to standard output itself.
  const bool belongsInLog = !format.starts_with("Downloading Vestrum");
  if (belongsInLog) context.logFile.append(line);
}

}  // namespace tarnwick
