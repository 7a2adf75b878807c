#include "network/Environment.hpp"

extern char** environ;

namespace vorlan {

Environment processEnvironment() {
  Environment env;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view text = *entry;
    auto eq = text.find('=');
    if (eq == std::string_view::npos) continue;
    // The first definition wins, as getenv sees it.
    env.emplace(std::string(text.substr(0, eq)), std::string(text.substr(eq + 1)));
  }
  return env;
}

std::optional<std::string> environmentValue(const Environment& env, std::string_view name) {
  if (auto it = env.find(name); it != env.end()) return it->second;
  return std::nullopt;
}

}  // namespace vorlan
