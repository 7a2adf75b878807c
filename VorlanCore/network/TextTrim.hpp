// Trimming as the configuration and the install id file need it: blanks only, or blanks and
// line breaks, over UTF-8 text, plus a UTF-8 validity test.
#pragma once
#include <string_view>

namespace vorlan {

// Spaces, tabs and the other Unicode space separators; line feeds stay.
std::string_view trimBlanks(std::string_view text);
// The same, and line breaks (LF, CR, VT, FF, NEL, U+2028, U+2029) too.
std::string_view trimBlanksAndNewlines(std::string_view text);

bool isValidUTF8(std::string_view text);

}  // namespace vorlan
