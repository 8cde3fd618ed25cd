#include "platform/process_stat.hpp"

#include <fmt/format.h>

#include "fuzz.hpp"

namespace tarnwick::fuzz {

/// The name that a process gave itself, its state and its parent, between what else the kernel
/// writes there; and anything at all.
void tryInput(std::string_view input) {
  const auto texts = textsIn(input, 3);
  const char state = std::string("RSDTtZXI")[texts[1].size() % 8];
  const auto parent = static_cast<pid_t>(integerByModel(texts[2]) & 0x3FFFFF);
  const std::string stat =
      fmt::format("4194304 ({}) {} {} 1 1 0 -1 4194560 95 0 0 0 0 0 0 0 20 0 1 0",
                  texts[0].substr(0, 64), state, parent);
  const auto info = platform::infoInStat(stat);
  require(info.has_value() && info->parent == parent, "no name changes the parent");
  require(info->cannotFork == (state == 'T' || state == 't' || state == 'Z' || state == 'X'),
          "a stopped, traced or ended process cannot fork");
  const auto cut = platform::infoInStat(input);
  require(!cut || input.find(')') != input.npos, "only what follows a name is believed");
}

}  // namespace tarnwick::fuzz
