# Turns dictionary.json into a C++ source holding its bytes.
file(READ "${INPUT}" _hex HEX)
string(LENGTH "${_hex}" _len)
math(EXPR _count "${_len} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," _bytes "${_hex}")
file(WRITE "${OUTPUT}.tmp"
"// Generated from dictionary.json at build time.\n#include <string_view>\nnamespace vorlan::resources {\nstatic const char kDictionaryBytes[] = {${_bytes} '\\0'};\nstd::string_view bundledDictionaryJson() { return {kDictionaryBytes, ${_count}}; }\n}\n")
file(RENAME "${OUTPUT}.tmp" "${OUTPUT}")
