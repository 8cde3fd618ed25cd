#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Helpers of the fuzz targets, and a second, simple implementation of the rules by which the
/// program reads texts.
namespace tarnwick::fuzz {

/// Each target defines this: gives the input to the program. `input` is valid during the call only.
void tryInput(std::string_view input);

/// Aborts if the program did not keep the promise, so that libFuzzer keeps the input.
void require(bool kept, const char* promise);

/// The first `count` texts of an input, which "~" separates; the missing ones are empty.
std::vector<std::string> textsIn(std::string_view input, std::size_t count);

/// Writes the content to a file, the same one in every call, and returns its path.
std::string fileWith(std::string_view content);

std::int64_t integerByModel(std::string_view text);
std::vector<std::string> splitByModel(std::string_view text, char separator);
std::string withoutByModel(std::string_view text, std::string_view word);

/// Returns nothing if the bytes are not UTF-8.
std::optional<std::u32string> charactersByModel(std::string_view bytes);

}  // namespace tarnwick::fuzz
