// The extra lines of `vorlan --version`: whether a newer version is published at the
// configured update endpoint. Silent on every failure, and silent when nothing is configured.
#include <fmt/format.h>

#include "Commands.hpp"
#include "Version.hpp"
#include "network/CurlTransport.hpp"
#include "network/Environment.hpp"
#include "network/UpdateCheck.hpp"

namespace vorlan::cli {

std::vector<std::string> versionNotes(const CliContext& ctx) {
  const std::string endpoint = UpdateCheck::endpointInForce(processEnvironment());
  CurlOptions options;
  options.stop = ctx.stop;
  CurlTransport http(std::move(options));
  HttpGetTransport transport(http);
  const auto update = UpdateCheck::check(Telemetry::appVersion, endpoint, transport);
  if (!update) return {};
  return {fmt::format("새 버전이 나왔습니다: {} — {}", update->version, update->url)};
}

}  // namespace vorlan::cli
