#include "publisher/upstream.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "base/file_tree.hpp"
#include "base/text_rules.hpp"
#include "publisher/disk.hpp"
#include "publisher/refusal.hpp"

namespace tarnwick::publisher {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view clamavsOwn = "https://database.clamav.net";
constexpr std::string_view blanks = " \t\r";

/// The rest of a configuration line behind this option; none for another line. As freshclam,
/// without regard to case.
std::optional<std::string_view> valueOf(std::string_view line, std::string_view option) {
  line = stripped(line, blanks);
  const bool same = line.size() >= option.size() &&
                    std::ranges::equal(line.substr(0, option.size()), option, [](char a, char b) {
                      return std::tolower(static_cast<unsigned char>(a)) ==
                             std::tolower(static_cast<unsigned char>(b));
                    });
  if (!same) return std::nullopt;
  return line.substr(option.size());
}

/// A private mirror is asked as ClamAV's own are: it would be asked for .cld files first, which
/// ClamAV did not sign.
std::string readVendorLines(const Home& home) {
  const std::string text = contentOf(home.freshclamLines).value_or("");
  std::string lines;
  for (const std::string_view line : split(text, '\n')) {
    if (line.empty() || valueOf(line, "DatabaseCustomURL")) continue;
    const auto mirror = valueOf(line, "PrivateMirror");
    lines += mirror ? fmt::format("DatabaseMirror{}\n", *mirror) : fmt::format("{}\n", line);
  }
  return lines;
}

/// Where patches are asked for, as freshclam itself asks for containers.
std::string sourceIn(const std::string& vendorLines) {
  std::string source;
  for (const std::string_view line : split(vendorLines, '\n')) {
    const auto value = valueOf(line, "DatabaseMirror");
    if (!value) continue;
    const std::string_view word = stripped(*value, " \t\"");
    source = word.substr(0, word.find_first_of("\" \t"));
    break;
  }
  if (source.empty()) source = clamavsOwn;
  if (source.find("://") == std::string::npos) source.insert(0, "https://");
  if (source.ends_with('/')) source.pop_back();
  return source;
}

bool namesRecord(const std::string& vendorLines) {
  return std::ranges::any_of(split(vendorLines, '\n'), [](std::string_view line) {
    return valueOf(line, "DNSDatabaseInfo").has_value();
  });
}

}  // namespace

Upstream::Upstream(const Home& home, const Workplace& work)
    : home_(home),
      work_(work),
      vendorLines_(readVendorLines(home)),
      source_(sourceIn(vendorLines_)) {
  for (const fs::path& entry : entriesOf(home.upstream)) {
    const std::string name = entry.filename();
    // What could not be had then may be there now.
    const bool emptyPatch = name.ends_with(".cdiff") && isFile(entry) && sizeOf(entry) == 0;
    if (name.starts_with("tmp.") || emptyPatch) removeTree(entry);
  }
}

/// The vendor's lines come last: of two values freshclam takes the first.
void Upstream::configure(const std::vector<std::string>& lines) const {
  std::string text = fmt::format(
      "DatabaseDirectory \"{}\"\nDatabaseOwner root\nScriptedUpdates no\nMaxAttempts 1\n",
      home_.upstream.string());
  for (const std::string& line : lines) text += line + "\n";
  if (source_ == clamavsOwn) text += fmt::format("DatabaseMirror {}\n", source_);
  write(file("freshclam.conf"), text + vendorLines_);
}

int Upstream::runFreshclam(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(),
                   {"--config-file=" + file("freshclam.conf").string(), "--stdout"});
  ChildEnd end = runChild(work_.run("freshclam", std::move(arguments)));
  report_ = std::move(end.output);
  return end.status;
}

/// freshclam calls it a success to be told to come back later.
void Upstream::refusePause() const {
  const std::size_t start = report_.find("cool-down until");
  if (start == std::string::npos) return;
  const std::string pause = report_.substr(start, report_.find('\n', start) - start);
  refuse("upstream asks for a pause; the mirror stays as it was", "freshclam is on " + pause);
}

std::string Upstream::whyItFailed() const {
  for (std::string_view line : split(report_, '\n')) {
    if (!line.starts_with("ERROR: ") && line.find("file not found") == std::string_view::npos &&
        line.find("Unexpected") == std::string_view::npos) {
      continue;
    }
    const std::size_t mark = line.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    if (mark != std::string_view::npos && line.substr(mark).starts_with(": ")) {
      line.remove_prefix(mark + 2);
    }
    return presentable(line);
  }
  return {};
}

bool Upstream::saidThereIsNone() const {
  return report_.find("file not found") != std::string::npos ||
         report_.find("Empty file") != std::string::npos;
}

void Upstream::fetchContainers() {
  configure({});
  // ClamAV's record in DNS tells of ClamAV's servers, and of no other.
  const bool asksRecord = source_.ends_with(".clamav.net") || namesRecord(vendorLines_);
  const int status =
      runFreshclam(asksRecord ? std::vector<std::string>{} : std::vector<std::string>{"--no-dns"});
  if (status != 0) {
    refuse(fmt::format("freshclam failed with status {}; the mirror stays as it was", status),
           whyItFailed());
  }
  refusePause();
}

void Upstream::askForFile(const std::string& name) {
  configure({"TestDatabases no", fmt::format("DatabaseCustomURL {}/{}", source_, name)});
  runFreshclam({"--no-dns", "--update-db=custom"});
  refusePause();
}

void Upstream::askForPatches(const std::string& name, const std::vector<std::int64_t>& versions) {
  std::vector<std::string> lines{"TestDatabases no"};
  for (const std::int64_t version : versions) {
    lines.push_back(fmt::format("DatabaseCustomURL {}/{}-{}.cdiff", source_, name, version));
  }
  configure(lines);
  runFreshclam({"--no-dns", "--update-db=custom"});
  refusePause();
}

}  // namespace tarnwick::publisher
