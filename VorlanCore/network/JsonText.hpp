// The three JSON text forms the network clients write: pretty for a screen, compact for the
// explain request, and the wire form of the reports, whose slashes are escaped as "\/".
#pragma once
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

namespace vorlan {

enum class JsonStyle { pretty, compact, wire };

// Bytes that are not UTF-8 inside strings become U+FFFD rather than costing the whole text;
// nothing only when encoding fails otherwise.
std::optional<std::string> jsonText(const nlohmann::ordered_json& json, JsonStyle style);

}  // namespace vorlan
