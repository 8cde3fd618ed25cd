#include "vendor/database_header.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <array>
#include <span>

#include "base/file_descriptor.hpp"
#include "base/file_tree.hpp"
#include "base/installation_paths.hpp"
#include "base/text_rules.hpp"
#include "driver/console.hpp"

namespace tarnwick {
namespace {

constexpr std::size_t fieldCount = 9;
constexpr std::size_t versionField = 2;
constexpr std::size_t buildTimeField = 8;

using HeaderBlock = std::array<char, 512>;

/// Appends even an absolute path to the folder; the console then names the path that was tried.
std::string resolvedPath(const std::string& name) {
  if (fileExists(name)) return name;
  return fmt::format("{}{}{}", fixedDatabaseDirectory(), name.starts_with('/') ? "" : "/", name);
}

std::size_t readBlock(int descriptor, HeaderBlock& block) {
  std::size_t filled = 0;
  while (filled < block.size()) {
    const ssize_t count = readSome(descriptor, std::span(block).subspan(filled));
    if (count <= 0) break;
    filled += static_cast<std::size_t>(count);
  }
  return filled;
}

bool isRegularFile(int descriptor) {
  struct stat status = {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

std::string_view withoutPadding(std::string_view block) {
  constexpr std::string_view padding = " \r\n";
  // The first byte always stays, even where it is padding itself.
  while (block.size() > 1 && padding.find(block.back()) != std::string_view::npos) {
    block.remove_suffix(1);
  }
  return block;
}

std::optional<std::vector<std::string>> fieldsOf(const std::optional<std::string>& header) {
  return header ? headerFieldsOfString(*header) : std::nullopt;
}

void reportFailure(const RunContext& context, const std::string& name,
                   const HeaderFailure& failure) {
  switch (failure.reason) {
    case HeaderFailure::Reason::notOpened:
      printMessage(context, "Unable to open file {}", failure.path);
      break;
    case HeaderFailure::Reason::empty:
      printMessage(context, "Unable to read header for file {}", name);
      break;
    case HeaderFailure::Reason::notText:
      break;
  }
}

}  // namespace

std::variant<std::string, HeaderFailure> headerLineOfFile(const std::string& name) {
  using Reason = HeaderFailure::Reason;
  const std::string path = resolvedPath(name);
  // Another user may have replaced the file. Opening a link could start a device; opening a FIFO
  // would wait for a writer.
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file.isOpen()) return HeaderFailure{Reason::notOpened, path};
  HeaderBlock block{};
  const std::size_t filled = isRegularFile(file.get()) ? readBlock(file.get(), block) : 0;
  if (filled == 0) return HeaderFailure{Reason::empty, path};
  std::string_view text = withoutPadding({block.data(), filled});
  text = text.substr(0, text.find('\0'));
  const std::optional<std::string> decoded = textFromUtf8(text);
  if (!decoded) return HeaderFailure{Reason::notText, path};
  return decoded->substr(0, decoded->find('\n'));
}

std::optional<std::vector<std::string>> headerFieldsOfString(std::string_view header) {
  const std::vector<std::string_view> fields = split(header, ':');
  if (fields.size() != fieldCount) return std::nullopt;
  return std::vector<std::string>(fields.begin(), fields.end());
}

std::int64_t databaseVersionOfHeader(const std::optional<std::string>& header) {
  const auto fields = fieldsOf(header);
  return fields ? parseInteger((*fields)[versionField]) : 0;
}

std::optional<double> databaseBuildDateOfHeader(const std::optional<std::string>& header) {
  const auto fields = fieldsOf(header);
  if (!fields) return std::nullopt;
  return parseDecimal((*fields)[buildTimeField]);
}

std::optional<std::string> readDatabaseHeader(const RunContext& context, const std::string& name) {
  const auto header = headerLineOfFile(name);
  if (const auto* const line = std::get_if<std::string>(&header)) return *line;
  reportFailure(context, name, std::get<HeaderFailure>(header));
  return std::nullopt;
}

}  // namespace tarnwick
