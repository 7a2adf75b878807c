#include "NetworkCli.hpp"

#include <fmt/format.h>

#include "cleanup/CleanupCopy.hpp"
#include "network/CleanupTelemetry.hpp"
#include "network/CurlTransport.hpp"
#include "network/Environment.hpp"
#include "network/Explain.hpp"
#include "network/ScanTelemetry.hpp"
#include "network/Telemetry.hpp"
#include "network/WebURL.hpp"
#include "platform/FullDiskAccess.hpp"

namespace vorlan::cli {
namespace {

constexpr std::string_view appKind = "cli";

// Ctrl-C ends a request at once instead of waiting out its time-out.
CurlTransport transportFor(const CliContext& ctx) {
  CurlOptions options;
  options.stop = ctx.stop;
  return CurlTransport(std::move(options));
}

void printExplainedRow(const CleanupItem& item) {
  fmt::print("  ~/{}  {}\n", item.path, formatGB(item.bytes));
  fmt::print("    {} · {}\n", item.what, item.reason);
  fmt::print("    {}\n", item.consequence);
}

}  // namespace

void printConsent() { fmt::print(stderr, "{}\n", Telemetry::consentSummary); }

void shareScanReport(const DeepScanResult& result, std::optional<double> systemDataGB,
                     std::optional<double> durationS, bool previewOnly, const CliContext& ctx) {
  const auto config = Telemetry::currentConfig();
  if (!config && !previewOnly) {
    warn("통계 서버가 설정되지 않아 익명 통계를 보내지 않았습니다.");
    return;
  }
  std::vector<std::string> errors;
  if (!FullDiskAccess::granted(ctx.home)) errors.emplace_back(Telemetry::fdaDeniedError);
  const auto payload = Telemetry::buildPayload(result, systemDataGB, durationS, appKind,
                                               std::move(errors), std::nullopt, ctx.home);
  if (previewOnly) {
    fmt::print("{}\n", Telemetry::encodeEnvelope(payload));
    return;
  }
  auto transport = transportFor(ctx);
  if (Telemetry::send(payload, transport, config))
    fmt::print(stderr, "익명 스캔 통계를 보냈습니다.\n");
  else
    warn("익명 통계를 보내지 못했습니다. 스캔 결과에는 영향이 없습니다.");
}

std::vector<CleanupItem> explainPlan(const std::vector<CleanupItem>& items,
                                     const KnowledgeDictionary& dictionary, const CliContext& ctx) {
  const auto paths = Explain::paths(items, dictionary);
  if (paths.empty()) {
    fmt::print("설명을 물어볼 폴더가 없습니다. 50MB 이상이고 이름이 공개 식별자(com.vendor.app 꼴)인 "
               "미확인 폴더만 묻습니다.\n");
    return items;
  }
  const std::string endpoint = Explain::endpointInForce(processEnvironment());
  if (!endpointURL(endpoint, Explain::path)) {
    warn("설명 서비스가 설정되지 않아 묻지 않았습니다.");
    return items;
  }
  fmt::print("설명 서비스에 보내는 내용 (폴더 {}개):\n{}\n", paths.size(), Explain::renderRequest(paths));
  std::fflush(stdout);

  auto http = transportFor(ctx);
  HttpExplainTransport transport(http);
  const auto answer = Explain::fetch(paths, endpoint, transport);
  if (!answer) {
    warn("설명을 받지 못했습니다. 판정은 그대로입니다.");
    return items;
  }
  auto explainedItems = applyExplanations(items, *answer);
  size_t changed = 0;
  for (size_t i = 0; i < items.size(); ++i) {
    if (explainedItems[i] == items[i]) continue;
    if (changed++ == 0) fmt::print("설명이 붙은 폴더:\n");
    printExplainedRow(explainedItems[i]);
  }
  if (changed == 0) fmt::print("새로 설명이 붙은 폴더가 없습니다.\n");
  return explainedItems;
}

void shareCleanupEvents(const std::vector<CleanupEvent>& events,
                        const KnowledgeDictionary& dictionary, const CliContext& ctx) {
  const auto config = Telemetry::currentConfig();
  if (!config) {
    warn("통계 서버가 설정되지 않아 정리 기록을 보내지 않았습니다.");
    return;
  }
  auto transport = transportFor(ctx);
  size_t sent = 0, failed = 0;
  for (const auto& event : events) {
    if (event.items.empty()) continue;  // an empty event is never built
    const auto built =
        Telemetry::buildCleanupEvent(event.event, event.items, dictionary, std::nullopt, ctx.home);
    (Telemetry::sendCleanupEvent(built, transport, config) ? sent : failed) += 1;
  }
  if (failed > 0)
    warn("정리 기록을 보내지 못했습니다. 정리 결과에는 영향이 없습니다.");
  else if (sent > 0)
    fmt::print(stderr, "익명 정리 기록 {}건을 보냈습니다.\n", sent);
}

}  // namespace vorlan::cli
