#include "platform/PropertyList.hpp"

#include <cstdint>
#include <cstdlib>

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
  char* value = nullptr;
  plist_get_string_val(node, &value);
  std::string text = value ? value : "";
  std::free(value);
  return text;
}

}  // namespace vorlan
