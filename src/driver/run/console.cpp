#include "driver/run/console.hpp"

#include "base/file_descriptor.hpp"
#include "base/standard_streams.hpp"

namespace tarnwick {

void writeMessage(const RunContext& context, std::string_view format, const std::string& line) {
  if (!context.quietMode) writeToStandardOutput(line);
  const bool belongsInLog = !format.starts_with("Downloading Vestrum");
  const int log = context.logFile.descriptor();
  if (context.logEnabled && belongsInLog && log >= 0) writeFully(log, line);
}

}  // namespace tarnwick
