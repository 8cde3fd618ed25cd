#include "driver/console.hpp"

#include "base/standard_streams.hpp"

namespace tarnwick {

void writeMessage(const RunContext& context, std::string_view format, const std::string& line) {
  if (!context.quietMode) writeToStandardOutput(line);
  // Fetching a definitions file is of interest while it lasts, to whoever looks on.
  const bool belongsInLog = !format.starts_with("Downloading Vestrum");
  if (context.logEnabled && belongsInLog) context.logFile.append(line);
}

}  // namespace tarnwick
