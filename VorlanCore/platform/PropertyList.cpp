#include "platform/PropertyList.hpp"

#include <cstdint>

namespace vorlan {

PlistTree parsePropertyList(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > UINT32_MAX) return nullptr;
  const auto length = static_cast<uint32_t>(bytes.size());
  plist_t raw = nullptr;
  if (plist_is_binary(bytes.data(), length))
    plist_from_bin(bytes.data(), length, &raw);
  else
    plist_from_xml(bytes.data(), length, &raw);
  return PlistTree(raw);
}

std::optional<std::string> plistString(plist_t dict, const char* key) {
  if (!dict || plist_get_node_type(dict) != PLIST_DICT) return std::nullopt;
  plist_t node = plist_dict_get_item(dict, key);
  if (!node || plist_get_node_type(node) != PLIST_STRING) return std::nullopt;
  // Not plist_get_string_val: it asserts (and so aborts the program) on a NUL inside the string.
  uint64_t length = 0;
  const char* value = plist_get_string_ptr(node, &length);
  if (!value) return std::nullopt;
  std::string text(value, length);
  // A name with a NUL in it cannot stand for anything on the disk.
  if (text.find('\0') != std::string::npos) return std::nullopt;
  return text;
}

}  // namespace vorlan
