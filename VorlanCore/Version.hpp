// The program's version: the one literal, read by the build as the project version.
#pragma once
#include <string_view>

namespace vorlan::Telemetry {
inline constexpr std::string_view appVersion = "0.2.4";
}
