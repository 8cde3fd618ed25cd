#pragma once

#include <string_view>

namespace tarnwick {

/// Whether the shell reads `path` unquoted as exactly this one word: it splits nothing and expands
/// nothing, not even braces, which some shells expand.
[[nodiscard]] bool isPlainShellWord(std::string_view path);

}  // namespace tarnwick
