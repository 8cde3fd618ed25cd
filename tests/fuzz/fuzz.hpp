#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the fuzz targets share: a few helpers, and the rules by which the program reads texts,
/// written down a second time in a plain and other way.
namespace tarnwick::fuzz {

/// What a target defines: gives the input, which is there for this call only, to the program.
void tryInput(std::string_view input);

/// Ends the process, so that libFuzzer keeps the input, unless the promise was kept.
void require(bool kept, const char* promise);

/// The texts that an input stands for, with "~" between them; none but empty ones at the end.
std::vector<std::string> textsIn(std::string_view input, std::size_t count);

/// The path of a plain file, always the same one, that holds this content now.
std::string fileWith(std::string_view content);

std::int64_t integerByModel(std::string_view text);
std::vector<std::string> splitByModel(std::string_view text, char separator);
std::string withoutByModel(std::string_view text, std::string_view word);

/// None when the bytes are not UTF-8.
std::optional<std::u32string> charactersByModel(std::string_view bytes);

}  // namespace tarnwick::fuzz
