// UTF-8 text as the whole program needs it: strict decoding and validity, and trimming of
// blanks (tool output, configuration) or of blanks and line breaks (the install id file).
#pragma once
#include <cstddef>
#include <string_view>

namespace vorlan {

// Spaces, tabs and the other Unicode space separators; line feeds stay.
std::string_view trimBlanks(std::string_view text);
// The same, and line breaks (LF, CR, VT, FF, NEL, U+2028, U+2029) too.
std::string_view trimBlanksAndNewlines(std::string_view text);

// Strict: overlong forms, surrogates and values past U+10FFFF are not UTF-8.
bool isValidUtf8(std::string_view text);

// Length in characters, not bytes: continuation bytes do not start a character.
size_t codePointCount(std::string_view text);

// One character decoded at text[i]; `length` is 0 when the bytes there are not UTF-8.
struct Utf8Char {
  char32_t codePoint = 0;
  size_t length = 0;
};
Utf8Char decodeUtf8At(std::string_view text, size_t i);

}  // namespace vorlan
