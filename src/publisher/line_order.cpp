#include "publisher/line_order.hpp"

#include <algorithm>
#include <array>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "base/text_rules.hpp"

namespace tarnwick::publisher {
namespace {

using Counts = std::unordered_map<std::string_view, std::int64_t>;

/// Calls `take` with each line, without its line feed.
template <typename Take>
void forEachLine(std::string_view text, const Take& take) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    take(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
}

Counts countsOf(std::string_view text) {
  Counts counts;
  forEachLine(text, [&counts](std::string_view line) { ++counts[line]; });
  return counts;
}

std::string_view kindOf(std::string_view name) {
  return name.substr(name.rfind('.') + 1);
}

bool holdsSignatures(std::string_view name) {
  return name.find('.') != std::string_view::npos && kindOf(name) != "info";
}

/// The text of a file of a set; empty when there is none.
std::string_view textOf(const FileSet& files, const std::string& name) {
  const auto found = files.find(name);
  return found == files.end() ? std::string_view() : std::string_view(found->second);
}

/// Takes the lines off with which both begin: mostly all but a few at the end.
void dropCommonStart(std::string_view& before, std::string_view& after) {
  const auto differing = std::ranges::mismatch(before, after);
  const auto same = static_cast<std::size_t>(differing.in1 - before.begin());
  const std::size_t line = same == 0 ? std::string_view::npos : before.rfind('\n', same - 1);
  if (line == std::string_view::npos) return;
  before.remove_prefix(line + 1);
  after.remove_prefix(line + 1);
}

void countChanges(std::string_view before, std::string_view after, LineChanges& changes) {
  changes.before += std::ranges::count(before, '\n');
  dropCommonStart(before, after);
  Counts counts = countsOf(before);
  forEachLine(after, [&](std::string_view line) {
    const auto found = counts.find(line);
    if (found == counts.end() || found->second == 0) {
      ++changes.added;
    } else {
      --found->second;
    }
  });
  for (const auto& [line, count] : counts) changes.removed += count;
}

}  // namespace

bool isWithoutOrder(std::string_view kind) {
  static constexpr auto kinds =
      std::to_array<std::string_view>({"hdb", "hdu", "hsb", "hsu", "mdb", "mdu", "msb", "msu",
                                       "ndb", "ndu", "fp", "sfp", "ign", "ign2", "imp"});
  return std::ranges::find(kinds, kind) != kinds.end();
}

std::string inPublishedOrder(std::string_view given, std::string_view published) {
  if (given.starts_with(published)) return std::string(given);
  Counts counts = countsOf(given);
  std::string ordered;
  ordered.reserve(given.size());
  const auto take = [&ordered](std::string_view line) {
    ordered += line;
    ordered += '\n';
  };
  Counts placed;
  forEachLine(published, [&](std::string_view line) {
    const auto found = counts.find(line);
    if (found == counts.end() || found->second == 0) return;
    --found->second;
    ++placed[line];
    take(line);
  });
  forEachLine(given, [&](std::string_view line) {
    const auto found = placed.find(line);
    if (found != placed.end() && found->second > 0) {
      --found->second;
    } else {
      take(line);
    }
  });
  return ordered;
}

FileSet inPublishedOrder(const FileSet& given, const FileSet& published) {
  FileSet ordered;
  for (const auto& [name, content] : given) {
    const auto before = published.find(name);
    const bool kept = before != published.end() && isWithoutOrder(kindOf(name));
    ordered[name] = kept ? inPublishedOrder(content, before->second) : content;
  }
  return ordered;
}

std::int64_t linesTwice(std::string_view text) {
  std::vector<std::pair<std::size_t, std::string_view>> lines;
  forEachLine(text, [&lines](std::string_view line) {
    if (!line.empty() && line.front() != '#') {
      lines.emplace_back(std::hash<std::string_view>()(line), line);
    }
  });
  std::ranges::sort(lines);
  std::int64_t twice = 0;
  for (std::size_t i = 1; i < lines.size(); ++i) {
    if (lines[i] == lines[i - 1]) ++twice;
  }
  return twice;
}

std::int64_t commentLines(std::string_view text) {
  std::int64_t comments = 0;
  forEachLine(text, [&comments](std::string_view line) {
    if (line.starts_with('#')) ++comments;
  });
  return comments;
}

LineChanges lineChanges(const FileSet& before, const FileSet& after) {
  LineChanges changes;
  for (const auto& [name, content] : before) {
    if (!holdsSignatures(name)) continue;
    const std::string_view now = textOf(after, name);
    if (now.empty() && !content.empty()) changes.lostKind = kindOf(name);
    countChanges(content, now, changes);
  }
  for (const auto& [name, content] : after) {
    if (holdsSignatures(name) && !before.contains(name)) countChanges("", content, changes);
  }
  return changes;
}

}  // namespace tarnwick::publisher
