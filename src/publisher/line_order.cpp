#include "publisher/line_order.hpp"

#include <algorithm>
#include <array>
#include <unordered_map>

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

void countChanges(std::string_view before, std::string_view after, LineChanges& changes) {
  Counts counts = countsOf(before);
  for (const auto& [line, count] : counts) changes.before += count;
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
