#include "publisher/signature_folder.hpp"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>

#include "base/file_tree.hpp"
#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/line_order.hpp"
#include "publisher/refusal.hpp"
#include "publisher/sensitive.hpp"
#include "publisher/signature_text.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view joinedStart = "VestRUM.";
constexpr std::size_t shown = 100;

std::string kindOf(const fs::path& file) {
  const std::string extension = file.extension().string();
  if (extension.size() < 2) {
    refuse(fmt::format("{} has no extension, so ClamAV cannot know what it holds", file.string()));
  }
  std::string kind = extension.substr(1);
  if (kind == "info" || kind == "cud") {
    refuse(
        fmt::format("{} would be lost: sigtool writes a .{} of its own; remove it from the "
                    "folder",
                    file.string(), kind));
  }
  return kind;
}

/// The kind of joined file of which ClamAV spoke first; empty when it named none.
std::string kindNamedIn(std::string_view report) {
  for (const std::string_view line : split(report, '\n')) {
    const std::size_t start = line.rfind(joinedStart);
    if (start == std::string_view::npos) continue;
    std::string kind;
    for (const char c : line.substr(start + joinedStart.size())) {
      if (std::isalnum(static_cast<unsigned char>(c)) == 0) break;
      kind += c;
    }
    if (!kind.empty() && kind != "cud") return kind;
  }
  return {};
}

/// The number after the first "line "; 0 when there is none.
std::int64_t lineNamedIn(std::string_view report) {
  for (std::size_t at = report.find("ine "); at != std::string_view::npos;
       at = report.find("ine ", at + 1)) {
    const std::int64_t line = parseInteger(report.substr(at + 4));
    if (line > 0) return line;
  }
  return 0;
}

/// The first error without what speaks of the joined file.
std::string reasonIn(std::string_view report) {
  constexpr std::string_view start = "LibClamAV Error: ";
  const std::string error = firstError(report);
  const std::string_view said = error;
  std::string reason =
      replaced(said.starts_with(start) ? said.substr(start.size()) : said, start, "; ");
  const std::size_t place = reason.rfind(" at line ");
  if (place != std::string::npos) reason.resize(place);
  return reason;
}

std::string_view lineAt(std::string_view content, std::int64_t line) {
  const std::vector<std::string_view> lines = split(content, '\n');
  const auto index = static_cast<std::size_t>(line - 1);
  return index < lines.size() ? lines[index] : std::string_view();
}

/// Where a line stands first; 0 when it does not.
std::int64_t numberOfLine(std::string_view content, std::string_view line) {
  std::int64_t number = 0;
  for (const std::string_view other : split(content, '\n')) {
    ++number;
    if (other == line) return number;
  }
  return 0;
}

}  // namespace

SignatureFolder::SignatureFolder(const fs::path& folder, const Home& home) {
  refuseInHome(folder, home);
  std::vector<fs::path> files;
  for (const std::string& name : namesIn(folder).value_or(std::vector<std::string>{})) {
    const fs::path file = folder / name;
    if (name.starts_with('.')) {
      hidden_.push_back(file);
      continue;
    }
    if (isLink(file)) {
      refuse(fmt::format("{} is a link; put the file itself there", file.string()));
    }
    if (!isFile(file)) {
      refuse(fmt::format("{} is not a file; a release is made of the files of one folder",
                         file.string()));
    }
    if (name != "COPYING") files.push_back(file);
  }
  if (files.empty()) {
    refuse(fmt::format("{} holds no signature files, such as threats.hdb or threats.ndb",
                       folder.string()));
  }
  std::ranges::sort(files);
  for (const fs::path& file : files) takeIn(file, home);
  const fs::path copying = folder / "COPYING";
  joined_["COPYING"] = isFile(copying) ? readToPublish(copying, home) : "";
}

void SignatureFolder::takeIn(const fs::path& file, const Home& home) {
  const std::string kind = kindOf(file);
  std::string content = readToPublish(file, home);
  if (const auto fault = faultOf(content, kind)) {
    const std::string place =
        fault->line > 0 ? fmt::format("{} line {}", file.string(), fault->line) : file.string();
    refuse(fmt::format("{} cannot be released: {}", place, fault->reason));
  }
  join(file, kind, content);
}

void SignatureFolder::join(const fs::path& file, const std::string& kind,
                           const std::string& content) {
  std::string& joined = joined_[std::string(joinedStart) + kind];
  const auto lines = std::ranges::count(joined, '\n');
  origins_.push_back({.kind = kind, .first = lines + 1, .file = file});
  joined += asJoined(content, kind);
}

const SignatureFolder::Origin* SignatureFolder::originOf(const std::string& kind,
                                                         std::int64_t line) const {
  const Origin* found = nullptr;
  for (const Origin& origin : origins_) {
    if (origin.kind == kind && origin.first <= line) found = &origin;
  }
  return found;
}

void SignatureFolder::refuseFor(std::int64_t version, const std::string& report,
                                const FileSet& tried) const {
  const std::string kind = kindNamedIn(report);
  const std::string reason = reasonIn(report);
  const std::string ending = fmt::format("version {} is not released", version);
  const auto joined = joined_.find(std::string(joinedStart) + kind);
  std::int64_t line = lineNamedIn(report);
  if (line > 0 && joined != joined_.end()) {
    line = numberOfLine(joined->second, lineAt(tried.at(joined->first), line));
  }
  const auto ofKind = std::ranges::count(origins_, kind, &Origin::kind);
  const Origin* const origin = originOf(kind, std::max<std::int64_t>(line, 1));
  if (origin != nullptr && joined->second.empty()) {
    refuse(fmt::format("ClamAV refuses {}, which is empty; {}", origin->file.string(), ending),
           "remove it from the folder");
  }
  if (origin != nullptr && line == 0 && ofKind == 1) {
    refuse(fmt::format("ClamAV refuses {}; {}", origin->file.string(), ending), reason);
  }
  if (origin == nullptr || line == 0) {
    refuse(fmt::format("ClamAV refuses these signatures; {}", ending), reason);
  }
  refuse(fmt::format("ClamAV refuses {} line {}; {}", origin->file.string(),
                     line - origin->first + 1, ending),
         fmt::format("there stands: {}", lineAt(joined->second, line).substr(0, shown)), reason);
}

void SignatureFolder::requireAllIn(const FileSet& container) const {
  for (const Origin& origin : origins_) {
    if (container.contains(std::string(joinedStart) + origin.kind)) continue;
    refuse(fmt::format("{} cannot be released: ClamAV takes no files of the kind .{} into a "
                       "container",
                       origin.file.string(), origin.kind),
           "remove it from the folder");
  }
}

std::vector<std::string> SignatureFolder::remarks() const {
  std::vector<std::string> remarks;
  for (const fs::path& file : hidden_) {
    remarks.push_back(fmt::format("Left out: {}, which is hidden", file.string()));
  }
  for (const auto& [name, content] : joined_) {
    if (name == "COPYING" || !isByLines(fs::path(name).extension().string().substr(1))) continue;
    const std::int64_t twice = linesTwice(content);
    const std::int64_t comments = commentLines(content);
    const std::string kind = fs::path(name).extension().string();
    if (comments > 0) {
      remarks.push_back(fmt::format("Passed over by ClamAV: {} of the kind {}",
                                    counted(comments, "comment line"), kind));
    }
    if (twice > 0) {
      remarks.push_back(fmt::format("Twice: {} of the kind {}", counted(twice, "line"), kind));
    }
  }
  return remarks;
}

}  // namespace tarnwick::publisher
