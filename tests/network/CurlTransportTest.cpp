// The libcurl transport against a real HTTP server on 127.0.0.1: what the reports and the
// explain client put on the wire, which answers count, and servers that misbehave.
#include <gtest/gtest.h>

#include "network/CleanupTelemetry.hpp"
#include "network/CurlTransport.hpp"
#include "network/Explain.hpp"
#include "network/LocalHttpServer.hpp"
#include "network/ScanTelemetry.hpp"

namespace vorlan {
namespace {

using test::LocalHttpServer;

// Waits at most a second, whatever a client asks for, so that no case can hang the suite.
CurlTransport quickCurl(size_t maxBytes = 4 << 20) {
  ::setenv("no_proxy", "127.0.0.1", 1);  // a proxy of the machine must not carry these requests
  return CurlTransport({.maxResponseBytes = maxBytes, .timeoutCap = std::chrono::seconds(1), .stop = {}});
}

TEST(CurlTransport, ClientsSendTheirHeadersAndBodyAndOnlySuccessCounts) {
  Telemetry::Payload payload;
  payload.installId = "0b8f7e7c-1f3a-4c5e-9d2b-123456789abc";
  // Over a kilobyte, where libcurl would wait for "100 Continue" if it were allowed to.
  for (int i = 0; i < 40; ++i) payload.findings.push_back({"Library/Item " + std::to_string(i), i, "REVIEW", "분류"});
  Telemetry::CleanupEvent event;
  event.items = {{"<masked-1>", 0, "unknown", false}};
  for (const auto& [status, slash] : std::vector<std::pair<int, std::string>>{
           {201, ""}, {204, "/"}, {300, ""}, {401, "/"}, {500, ""}}) {
    LocalHttpServer server(
        [code = status](const test::ReceivedRequest&) { return LocalHttpServer::response(code, R"({"entries":{}})"); });
    auto curl = quickCurl();
    HttpExplainTransport explain(curl);
    const Telemetry::Config config{server.base() + slash, "anon.key"};
    EXPECT_EQ(Telemetry::send(payload, curl, config), status < 300) << status;
    EXPECT_EQ(Telemetry::sendCleanupEvent(event, curl, config), status < 300) << status;
    EXPECT_EQ(Explain::fetch({"a.b.c"}, config.url, explain).has_value(), status == 201) << status;  // 204: no body
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3u);
    EXPECT_EQ(requests[0].target + requests[0].body, "/rest/v1/scan_reports" + Telemetry::encodeEnvelope(payload));
    EXPECT_EQ(requests[1].target + requests[1].body, "/rest/v1/cleanup_events" + Telemetry::encodeCleanupEnvelope(event));
    EXPECT_EQ(requests[2].target + requests[2].body, "/explain" + Explain::renderRequest({"a.b.c"}));
    EXPECT_EQ(requests[2].header("apikey"), std::nullopt) << "the key is for the reports only";
    EXPECT_EQ(requests[2].header("Authorization"), std::nullopt);
    for (const auto& r : requests) {
      EXPECT_EQ(r.header("Content-Type"), "application/json");
      if (r.target == "/explain") continue;
      EXPECT_EQ(r.header("apikey"), "anon.key");
      EXPECT_EQ(r.header("Authorization"), "Bearer anon.key");
      EXPECT_EQ(r.header("Prefer"), "return=minimal");
      EXPECT_EQ(r.header("Expect"), std::nullopt);
    }
  }
}

TEST(CurlTransport, BrokenOrOversizedAnswersAreNoAnswer) {
  const std::string big(5 << 20, 'x');
  // The answer's raw bytes (none: it never comes), the read bound, the status that comes out.
  using Case = std::tuple<const char*, std::optional<std::string>, size_t, std::optional<long>>;
  const Case cases[] = {
      {"never answers: the one-second cap ends it", std::nullopt, 4 << 20, std::nullopt},
      {"closes mid-answer", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"entries\":", 4096, std::nullopt},
      {"huge body", LocalHttpServer::response(200, big), 4 << 20, std::nullopt},
      {"huge body, chunked", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n500000\r\n" + big + "\r\n0\r\n\r\n",
       4 << 20, std::nullopt},
      {"one byte past the bound", LocalHttpServer::response(200, std::string(4097, 'y')), 4096, std::nullopt},
      {"a redirect is not followed", LocalHttpServer::response(302, "", "Location: /elsewhere\r\n"), 4096, 302},
  };
  for (const auto& [name, raw, limit, status] : cases) {
    LocalHttpServer server([answer = raw](const test::ReceivedRequest&) { return answer; });
    const auto response = quickCurl(limit).perform(
        {.method = "GET", .url = server.base() + "/", .headers = {}, .body = {}, .timeout = std::chrono::seconds(10)});
    EXPECT_EQ(response ? std::optional(response->status) : std::nullopt, status) << name;
    EXPECT_EQ(server.requests().size(), 1u) << name;
  }
}

}  // namespace
}  // namespace vorlan
