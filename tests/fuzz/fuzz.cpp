#include "fuzz.hpp"

#include <unicode/unistr.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "testbed/scratch.hpp"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
  tarnwick::fuzz::tryInput({reinterpret_cast<const char*>(data), size});
  return 0;
}

namespace tarnwick::fuzz {

void require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "Broken promise: %s\n", promise);
  std::abort();
}

std::vector<std::string> textsIn(std::string_view input, std::size_t count) {
  std::vector<std::string> texts = splitByModel(input, '~');
  texts.resize(count);
  return texts;
}

std::string fileWith(std::string_view content) {
  static const testbed::Scratch folder;
  return folder.write("input", std::string(content));
}

std::int64_t integerByModel(std::string_view text) {
  return std::strtoll(std::string(text).c_str(), nullptr, 10);
}

std::vector<std::string> splitByModel(std::string_view text, char separator) {
  std::istringstream stream(std::string(text) + separator);
  std::vector<std::string> pieces;
  for (std::string piece; std::getline(stream, piece, separator);) pieces.push_back(piece);
  return pieces;
}

std::string withoutByModel(std::string_view text, std::string_view word) {
  std::string rest(text);
  for (std::size_t at = 0; (at = rest.find(word, at)) != rest.npos;) rest.erase(at, word.size());
  return rest;
}

std::optional<std::u32string> charactersByModel(std::string_view bytes) {
  const auto text = icu::UnicodeString::fromUTF8(
      icu::StringPiece(bytes.data(), static_cast<std::int32_t>(bytes.size())));
  std::string again;
  if (text.toUTF8String(again) != bytes) return std::nullopt;  // it replaces invalid bytes
  std::vector<UChar32> characters(static_cast<std::size_t>(text.countChar32()));
  UErrorCode status = U_ZERO_ERROR;
  text.toUTF32(characters.data(), static_cast<std::int32_t>(characters.size()), status);
  return std::u32string(characters.begin(), characters.end());
}

}  // namespace tarnwick::fuzz
