#include "publisher/container.hpp"

#include <fcntl.h>
#include <fmt/format.h>

#include <array>

#include "base/file_descriptor.hpp"
#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"
#include "transfer/signing/crypto.hpp"
#include "transfer/signing/file_digest.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t versionField = 2;

bool isVersion(std::string_view text) {
  constexpr std::size_t mostDigits = 18;
  return !text.empty() && text.size() <= mostDigits && text[0] != '0' &&
         text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// The first bytes of a file; none when it cannot be read.
std::optional<std::string> startOf(const fs::path& file) {
  const FileDescriptor opened(::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!opened.isOpen()) return std::nullopt;
  std::array<char, headerLength> buffer;  // NOLINT(*-member-init): filled by read
  const ssize_t count = readSome(opened.get(), buffer);
  if (count < 0) return std::nullopt;
  return std::string(buffer.data(), static_cast<std::size_t>(count));
}

}  // namespace

std::optional<ContainerHeader> headerOf(std::string_view container) {
  std::string text = replaced(container.substr(0, headerLength), std::string_view("\0", 1), "");
  text = text.substr(0, text.find('\n'));
  ContainerHeader header;
  for (const std::string_view field : split(stripped(text, " "), ':')) {
    header.fields.emplace_back(field);
  }
  if (header.fields.size() <= versionField || header.fields[0] != "ClamAV-VDB" ||
      !isVersion(header.fields[versionField])) {
    return std::nullopt;
  }
  header.version = parseInteger(header.fields[versionField]);
  return header;
}

std::optional<ContainerHeader> headerOfFile(const fs::path& container) {
  const auto start = startOf(container);
  return start ? headerOf(*start) : std::nullopt;
}

std::int64_t versionOfFile(const fs::path& container) {
  const auto header = headerOfFile(container);
  return header ? header->version : 0;
}

std::optional<FileSet> unpack(std::string_view container, std::uint64_t limit) {
  if (container.size() <= headerLength) return std::nullopt;
  return unpackArchive(container.substr(headerLength), limit);
}

std::optional<FileSet> unpackFile(const fs::path& container) {
  const auto content = contentOf(container);
  return content ? unpack(*content) : std::nullopt;
}

void layOut(const FileSet& files, const fs::path& folder) {
  makeFolder(folder);
  for (const auto& [name, content] : files) write(folder / name, content);
}

std::optional<FileSet> filesOf(const fs::path& folder) {
  FileSet files;
  for (const fs::path& entry : entriesOf(folder)) {
    auto content = contentOf(entry);
    if (!content) return std::nullopt;
    files[entry.filename()] = std::move(*content);
  }
  return files;
}

std::optional<std::string> pack(const FileSet& files) {
  const auto info = files.find("VestRUM.info");
  const auto packed = packArchive(files);
  if (info == files.end() || !packed) return std::nullopt;
  const std::string digest = hexadecimal(crypto::digestOf(crypto::DigestAlgorithm::md5, *packed));
  const std::string line = info->second.substr(0, info->second.find('\n'));
  return fmt::format("{:<512}", replaced(line, ":X:X:", fmt::format(":{}:X:", digest))) + *packed;
}

ChildRun trialOf(const fs::path& database, const Workplace& work) {
  const std::string scanner = findProgram("clamscan").value_or("clamscan");
  return work.run(scanner, {"--no-summary", "--infected", "-d", database.string(), scanner});
}

Verdict verdictOf(const ChildEnd& trial) {
  if (trial.status == 0) return Verdict::good;
  return trial.status == 1 ? Verdict::refused : Verdict::unloadable;
}

std::string whyRefused(const ChildEnd& trial) {
  constexpr std::string_view ending = " FOUND";
  std::string names;
  for (const std::string_view line : split(trial.output, '\n')) {
    const std::size_t name = line.rfind(": ");
    if (!line.ends_with(ending) || name == std::string_view::npos) continue;
    names += names.empty() ? "" : ", ";
    names += line.substr(name + 2, line.size() - name - 2 - ending.size());
  }
  if (names.empty()) return firstError(trial.output);
  return names + " matches the scanner itself, so that every installation would refuse it";
}

}  // namespace tarnwick::publisher
