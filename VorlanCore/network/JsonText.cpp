#include "network/JsonText.hpp"

namespace vorlan {

std::optional<std::string> jsonText(const nlohmann::ordered_json& json, JsonStyle style) {
  std::string text;
  try {
    text = json.dump(style == JsonStyle::pretty ? 2 : -1, ' ', false,
                     nlohmann::ordered_json::error_handler_t::replace);
  } catch (const std::exception&) {
    return std::nullopt;
  }
  if (style != JsonStyle::wire) return text;
  // Outside strings JSON has no "/", so every slash in the text stands inside a string.
  std::string escaped;
  escaped.reserve(text.size() + text.size() / 8);
  for (char c : text) {
    if (c == '/') escaped += '\\';
    escaped += c;
  }
  return escaped;
}

}  // namespace vorlan
