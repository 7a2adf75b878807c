#include "scan/ToolRunning.hpp"

namespace vorlan {

ToolError ToolError::notFound(std::string name) {
  return ToolError(Kind::notFound, "tool not found: " + name, std::move(name), {});
}

ToolError ToolError::timeout(std::vector<std::string> arguments) {
  std::string what = "tool timed out:";
  for (const auto& a : arguments) what += " " + a;
  return ToolError(Kind::timeout, std::move(what), {}, std::move(arguments));
}

}  // namespace vorlan
