#include "publisher/script_walk.hpp"

#include <deque>
#include <string>

#include "publisher/home.hpp"
#include "publisher/script.hpp"

namespace tarnwick::publisher {

ScriptWalk walkScripts(const FileSet& files, const PublishedTree& tree, std::int64_t from,
                       std::int64_t to) {
  Replay replay(files);
  std::deque<std::string> scripts;  // the lines of a replay are theirs
  for (std::int64_t number = from + 1; number <= to; ++number) {
    auto script = tree.read(scriptName(number));
    if (!script) return {.result = {}, .stoppedAt = number};
    scripts.push_back(std::move(*script));
    if (!replay.apply(scripts.back())) return {.result = {}, .stoppedAt = number};
  }
  return {.result = replay.result(), .stoppedAt = 0};
}

}  // namespace tarnwick::publisher
