#include "publisher/script.hpp"

#include <algorithm>
#include <bit>

#include "base/text_rules.hpp"

namespace tarnwick::publisher {
namespace {

/// The text before the first blank, which goes from `text` together with it.
std::string_view takeWord(std::string_view& text) {
  const std::size_t end = text.find(' ');
  const std::string_view word = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return word;
}

/// 0 for what is no number of a line.
std::int64_t lineNumber(std::string_view text) {
  constexpr std::size_t mostDigits = 9;
  const bool digits = !text.empty() && text.size() <= mostDigits &&
                      text.find_first_not_of("0123456789") == std::string_view::npos;
  return digits ? parseInteger(text) : 0;
}

/// As the adapter of installations allows it.
bool isPlainName(std::string_view name) {
  constexpr std::string_view allowed =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.";
  return !name.empty() && name.front() != '.' &&
         name.find_first_not_of(allowed) == std::string_view::npos;
}

}  // namespace

ScriptedLines::ScriptedLines(std::string_view content) {
  endsWithoutLineFeed_ = !content.empty() && content.back() != '\n';
  while (!content.empty()) {
    const std::size_t end = content.find('\n');
    lines_.push_back(content.substr(0, end));
    content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
  }
  isLeft_.assign(lines_.size(), true);
  count_ = static_cast<std::int64_t>(lines_.size());
  grow();
}

/// Makes the tree anew, with room for twice the lines.
void ScriptedLines::grow() {
  constexpr std::size_t smallest = 64;
  const std::size_t size = std::bit_ceil(std::max(lines_.size() * 2, smallest));
  left_.assign(size + 1, 0);
  for (std::size_t place = 0; place < lines_.size(); ++place) {
    if (isLeft_[place]) left_[place + 1] = 1;
  }
  for (std::size_t at = 1; at <= size; ++at) {
    const std::size_t above = at + (at & (~at + 1));
    if (above <= size) left_[above] += left_[at];
  }
}

std::size_t ScriptedLines::placeOf(std::int64_t line) const {
  std::size_t at = 0;
  auto wanted = static_cast<std::int32_t>(line);
  for (std::size_t step = left_.size() - 1; step > 0; step /= 2) {
    if (at + step < left_.size() && left_[at + step] < wanted) {
      at += step;
      wanted -= left_[at];
    }
  }
  return at;
}

void ScriptedLines::remove(std::size_t place) {
  isLeft_[place] = false;
  --count_;
  for (std::size_t at = place + 1; at < left_.size(); at += at & (~at + 1)) --left_[at];
}

bool ScriptedLines::apply(std::vector<Change> changes, const std::vector<std::string_view>& added) {
  std::ranges::stable_sort(changes, {}, &Change::line);
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    const Change& change = changes[i];
    if (change.line < 1 || change.line > count_) return false;
    if (i > 0 && change.line == changes[i - 1].line) return false;
    places.push_back(placeOf(change.line));
    if (!lines_[places.back()].starts_with(change.start)) return false;
  }
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i].now) {
      lines_[places[i]] = *changes[i].now;
    } else {
      remove(places[i]);
    }
  }
  if (endsWithoutLineFeed_ && !(changes.empty() && added.empty())) return false;
  for (const std::string_view line : added) {
    lines_.push_back(line);
    isLeft_.push_back(true);
    ++count_;
    if (lines_.size() >= left_.size()) {
      grow();
    } else {
      for (std::size_t at = lines_.size(); at < left_.size(); at += at & (~at + 1)) ++left_[at];
    }
  }
  return true;
}

std::string ScriptedLines::content() const {
  std::string content;
  for (std::size_t place = 0; place < lines_.size(); ++place) {
    if (!isLeft_[place]) continue;
    content += lines_[place];
    content += '\n';
  }
  if (endsWithoutLineFeed_) content.pop_back();
  return content;
}

/// What stands between OPEN and CLOSE.
struct Replay::Block {
  std::optional<std::string> file;
  std::vector<ScriptedLines::Change> changes;
  std::vector<std::string_view> added;
};

Replay::Replay(const FileSet& files) {
  for (const auto& [name, content] : files) files_.emplace(name, content);
}

bool Replay::close(Block& block) {
  if (!block.file) return false;
  const auto file = files_.try_emplace(*block.file, std::string_view()).first;
  const bool applied = file->second.apply(std::move(block.changes), block.added);
  block = {};
  return applied;
}

bool Replay::take(std::string_view line, Block& block) {
  if (line.empty() || line.front() == '#') return true;
  std::string_view rest = line;
  const std::string_view verb = takeWord(rest);
  if (verb == "OPEN" || verb == "UNLINK") {
    if (block.file || !isPlainName(rest)) return false;
    if (verb == "UNLINK") return files_.erase(std::string(rest)) == 1;
    block.file = rest;
    return true;
  }
  if (line == "CLOSE") return close(block);
  if (!block.file || rest.empty()) return false;
  if (verb == "ADD") {
    block.added.push_back(rest);
    return true;
  }
  if (verb != "DEL" && verb != "XCHG") return false;
  ScriptedLines::Change change{.line = lineNumber(takeWord(rest)), .start = rest};
  if (verb == "XCHG") {
    change.start = takeWord(rest);
    change.now = rest;
  }
  if (change.start.empty() || (change.now && change.now->empty())) return false;
  block.changes.push_back(change);
  return true;
}

bool Replay::apply(std::string_view script) {
  Block block;
  while (!script.empty()) {
    const std::size_t end = script.find('\n');
    const std::string_view line = script.substr(0, end);
    script.remove_prefix(end == std::string_view::npos ? script.size() : end + 1);
    if (!take(line, block)) return false;
  }
  return !block.file;
}

FileSet Replay::result() const {
  FileSet files;
  for (const auto& [name, lines] : files_) files[name] = lines.content();
  return files;
}

}  // namespace tarnwick::publisher
