#include "platform/process_stat.hpp"

#include <fmt/format.h>

#include "fuzz.hpp"

namespace tarnwick::fuzz {

/// The input is the name, the state and the parent of a process, put between the kernel's other
/// fields; then the whole input is read as such a file.
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
          "only stopped, traced and ended processes cannot fork");
  const auto cut = platform::infoInStat(input);
  require(!cut || input.find(')') != input.npos, "only text after a name is read");
}

}  // namespace tarnwick::fuzz
