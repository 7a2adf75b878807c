// The process environment as a plain map, so that configuration is decided on captured input
// and read afresh each time it is needed.
#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace vorlan {

using Environment = std::map<std::string, std::string, std::less<>>;

Environment processEnvironment();

// The value of `name` when the key is present, even when the value is empty.
std::optional<std::string> environmentValue(const Environment& env, std::string_view name);

}  // namespace vorlan
