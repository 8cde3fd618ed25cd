#include "driver/console.hpp"

#include "base/standard_streams.hpp"

namespace tarnwick {

void writeMessage(const RunContext& context, std::string_view format, const std::string& line) {
  if (!context.quietMode) writeToStandardOutput(line);
  // Callers rely on this rule, although no message of this program begins so: the progress of a
  // definitions file is written by the downloader, past this function.
  const bool belongsInLog = !format.starts_with("Downloading Vestrum");
  if (belongsInLog) context.logFile.append(line);
}

}  // namespace tarnwick
