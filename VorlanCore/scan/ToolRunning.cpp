#include "scan/ToolRunning.hpp"

namespace vorlan {

ToolError ToolError::notFound(std::string name) {
  // The message is built first: the order in which arguments are evaluated is unspecified.
  std::string what = "tool not found: " + name;
  return ToolError(Kind::notFound, std::move(what), std::move(name), {});
}

ToolError ToolError::timeout(std::vector<std::string> arguments) {
  std::string what = "tool timed out:";
  for (const auto& a : arguments) what += " " + a;
  return ToolError(Kind::timeout, std::move(what), {}, std::move(arguments));
}

}  // namespace vorlan
