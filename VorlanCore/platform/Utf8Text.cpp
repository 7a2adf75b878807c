#include "platform/Utf8Text.hpp"

#include <cstdint>

namespace vorlan {
namespace {

using Decoded = Utf8Char;

Decoded decodeAt(std::string_view text, size_t i) {
  auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  unsigned char c = byte(i);
  if (c < 0x80) return {c, 1};
  size_t len = (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
  if (len == 0 || i + len > text.size()) return {};
  char32_t cp = c & (0x7F >> len);
  for (size_t k = 1; k < len; ++k) {
    if ((byte(i + k) & 0xC0) != 0x80) return {};
    cp = (cp << 6) | (byte(i + k) & 0x3F);
  }
  // Overlong forms, surrogates and values past U+10FFFF are not UTF-8.
  static constexpr char32_t minimum[] = {0, 0, 0x80, 0x800, 0x10000};
  if (cp < minimum[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return {};
  return {cp, len};
}

// The character that ends just before text[end]; length 0 when it is not UTF-8.
Decoded decodeBefore(std::string_view text, size_t end) {
  size_t start = end;
  while (start > 0 && end - start < 4) {
    --start;
    if ((static_cast<unsigned char>(text[start]) & 0xC0) != 0x80) break;
  }
  Decoded d = decodeAt(text, start);
  if (d.length != end - start) return {};
  return d;
}

bool isBlank(char32_t cp) {
  return cp == ' ' || cp == '\t' || cp == 0xA0 || cp == 0x1680 || (cp >= 0x2000 && cp <= 0x200A) ||
         cp == 0x202F || cp == 0x205F || cp == 0x3000;
}

bool isNewline(char32_t cp) {
  return cp == '\n' || cp == '\r' || cp == 0x0B || cp == 0x0C || cp == 0x85 || cp == 0x2028 ||
         cp == 0x2029;
}

template <typename Pred>
std::string_view trimWith(std::string_view text, Pred pred) {
  size_t begin = 0;
  while (begin < text.size()) {
    Decoded d = decodeAt(text, begin);
    if (d.length == 0 || !pred(d.codePoint)) break;
    begin += d.length;
  }
  size_t end = text.size();
  while (end > begin) {
    Decoded d = decodeBefore(text, end);
    if (d.length == 0 || !pred(d.codePoint)) break;
    end -= d.length;
  }
  return text.substr(begin, end - begin);
}

}  // namespace

std::string_view trimBlanks(std::string_view text) { return trimWith(text, isBlank); }

std::string_view trimBlanksAndNewlines(std::string_view text) {
  return trimWith(text, [](char32_t cp) { return isBlank(cp) || isNewline(cp); });
}

size_t codePointCount(std::string_view text) {
  size_t count = 0;
  for (unsigned char c : text)
    if ((c & 0xC0) != 0x80) ++count;
  return count;
}

Utf8Char decodeUtf8At(std::string_view text, size_t i) { return decodeAt(text, i); }

bool isValidUtf8(std::string_view text) {
  for (size_t i = 0; i < text.size();) {
    Decoded d = decodeAt(text, i);
    if (d.length == 0) return false;
    i += d.length;
  }
  return true;
}

}  // namespace vorlan
