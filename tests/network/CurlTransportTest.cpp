// The libcurl transport and the three clients over it, against a real HTTP server on
// 127.0.0.1: what goes on the wire, which answers count, and servers that misbehave.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fmt/format.h>

#include "network/CleanupTelemetry.hpp"
#include "network/CurlTransport.hpp"
#include "network/Explain.hpp"
#include "network/LocalHttpServer.hpp"
#include "network/ScanTelemetry.hpp"
#include "network/UpdateCheck.hpp"

namespace vorlan {
namespace {

using test::LocalHttpServer;
using test::ReceivedRequest;

class CurlTransportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A proxy configured on the machine must not carry the loopback traffic of these tests.
    for (const char* name : {"no_proxy", "NO_PROXY"}) {
      if (const char* value = std::getenv(name)) savedNoProxy_.emplace_back(name, value);
      ::setenv(name, "127.0.0.1,localhost", 1);
    }
  }
  void TearDown() override {
    for (const char* name : {"no_proxy", "NO_PROXY"}) ::unsetenv(name);
    for (const auto& [name, value] : savedNoProxy_) ::setenv(name.c_str(), value.c_str(), 1);
  }

  static CurlTransport quickTransport(size_t maxBytes = 4 * 1024 * 1024) {
    CurlOptions options;
    options.timeoutCap = std::chrono::seconds(1);
    options.maxResponseBytes = maxBytes;
    return CurlTransport(std::move(options));
  }

 private:
  std::vector<std::pair<std::string, std::string>> savedNoProxy_;
};

LocalHttpServer::Handler always(std::string answer) {
  return [answer](const ReceivedRequest&) { return answer; };
}

// Large enough that libcurl would ask for "100 Continue" if it were allowed to.
Telemetry::Payload bulkyPayload() {
  Telemetry::Payload payload;
  payload.installId = "0b8f7e7c-1f3a-4c5e-9d2b-123456789abc";
  payload.appKind = "cli";
  payload.osVersion = "14.5";
  for (int i = 0; i < 40; ++i)
    payload.findings.push_back({fmt::format("Library/Item {}", i), i * 1000, "REVIEW", "분류"});
  payload.findings.push_back({"<masked-1>", 5, "UNKNOWN", "미분류"});
  return payload;
}

TEST_F(CurlTransportTest, ScanReportGoesOutWithTheDocumentedHeadersAndBody) {
  struct Case {
    int status;
    bool accepted;
  };
  const Case cases[] = {{200, true}, {201, true}, {204, true}, {300, false}, {401, false}, {500, false}};
  const auto payload = bulkyPayload();
  for (const auto& c : cases) {
    LocalHttpServer server(always(LocalHttpServer::response(c.status, c.status == 401 ? R"({"message":"bad key"})" : "")));
    CurlTransport curl;
    const Telemetry::Config config{server.base(), "anon.key.value"};
    EXPECT_EQ(Telemetry::send(payload, curl, config), c.accepted) << c.status;

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u) << c.status;
    const auto& r = requests[0];
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.target, "/rest/v1/scan_reports");
    EXPECT_EQ(r.header("Content-Type"), "application/json");
    EXPECT_EQ(r.header("apikey"), "anon.key.value");
    EXPECT_EQ(r.header("Authorization"), "Bearer anon.key.value");
    EXPECT_EQ(r.header("Prefer"), "return=minimal");
    EXPECT_EQ(r.header("Expect"), std::nullopt);
    EXPECT_EQ(r.header("User-Agent"), std::nullopt);
    EXPECT_GT(r.body.size(), 1024u);
    EXPECT_EQ(r.body, Telemetry::encodeEnvelope(payload));
  }
}

TEST_F(CurlTransportTest, BaseURLWithOrWithoutSlashReachesTheSameTable) {
  LocalHttpServer server(always(LocalHttpServer::response(201, "")));
  CurlTransport curl;
  Telemetry::CleanupEvent event;
  event.installId = "id";
  event.event = "deleted";
  event.items = {{"<masked-1>", 0, "unknown", false}};
  for (const std::string& base : {server.base(), server.base() + "/"}) {
    EXPECT_TRUE(Telemetry::sendCleanupEvent(event, curl, Telemetry::Config{base, "k"})) << base;
    EXPECT_TRUE(Telemetry::send(Telemetry::Payload{}, curl, Telemetry::Config{base, "k"})) << base;
  }
  std::vector<std::string> targets;
  for (const auto& r : server.requests()) targets.push_back(r.target);
  EXPECT_EQ(targets, (std::vector<std::string>{"/rest/v1/cleanup_events", "/rest/v1/scan_reports",
                                               "/rest/v1/cleanup_events", "/rest/v1/scan_reports"}));
  EXPECT_EQ(server.requests()[0].body, Telemetry::encodeCleanupEnvelope(event));
}

TEST_F(CurlTransportTest, ExplainSendsOnlyTheRequestAndTakesOnlySuccess) {
  const std::string entries =
      R"({"entries":{"Library/Caches/com.a.app":{"what":"캐시","deletePaths":["x"]}}})";
  struct Case {
    int status;
    std::string body;
    bool answered;
  };
  const Case cases[] = {{200, entries, true},
                        {201, entries, true},
                        {204, "", false},
                        {300, entries, false},
                        {500, entries, false}};
  const std::vector<std::string> paths = {"Library/Caches/com.a.app"};
  for (const auto& c : cases) {
    LocalHttpServer server(always(LocalHttpServer::response(c.status, c.body)));
    CurlTransport curl;
    HttpExplainTransport transport(curl);
    const auto answer = Explain::fetch(paths, server.base() + "//", transport);
    EXPECT_EQ(answer.has_value(), c.answered) << c.status;
    if (answer) {
      EXPECT_TRUE(answer->at(paths[0]).deletePaths.empty());
    }

    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    const auto& r = requests[0];
    EXPECT_EQ(r.method, "POST");
    EXPECT_EQ(r.target, "/explain");
    EXPECT_EQ(r.body, Explain::renderRequest(paths));
    EXPECT_EQ(r.header("Content-Type"), "application/json");
    // No key and no identity go to this service.
    EXPECT_EQ(r.header("apikey"), std::nullopt);
    EXPECT_EQ(r.header("Authorization"), std::nullopt);
    EXPECT_EQ(r.header("Prefer"), std::nullopt);
  }
}

TEST_F(CurlTransportTest, UpdateCheckReadsTheManifestAndFollowsNoRedirect) {
  const std::string manifest = R"({"version":"9.0","url":"https://vorlan.example/get"})";
  struct Case {
    const char* name;
    std::function<std::string(const LocalHttpServer&)> answer;
    std::optional<UpdateInfo> expected;
  };
  const Case cases[] = {
      {"published", [&](const LocalHttpServer&) { return LocalHttpServer::response(200, manifest); },
       UpdateInfo{"9.0", "https://vorlan.example/get"}},
      {"server error with a valid body",
       [&](const LocalHttpServer&) { return LocalHttpServer::response(500, manifest); }, std::nullopt},
      {"redirect",
       [&](const LocalHttpServer& s) {
         return LocalHttpServer::response(302, "", {{"Location", s.base() + "/elsewhere"}});
       },
       std::nullopt},
  };
  for (const auto& c : cases) {
    LocalHttpServer* self = nullptr;
    LocalHttpServer server([&](const ReceivedRequest&) { return c.answer(*self); });
    self = &server;
    CurlTransport curl;
    HttpGetTransport transport(curl);
    EXPECT_EQ(UpdateCheck::check("0.2.4", server.base() + "/", transport), c.expected) << c.name;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u) << c.name << ": nothing followed";
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].target, "/version.json");
    EXPECT_EQ(requests[0].header("Content-Type"), std::nullopt);
    EXPECT_EQ(requests[0].header("apikey"), std::nullopt);
  }
}

TEST_F(CurlTransportTest, BrokenAnswersAreNoAnswer) {
  const std::string big(5 * 1024 * 1024, 'x');
  struct Case {
    const char* name;
    std::optional<std::string> raw;  // nothing: the server never answers
    size_t limit;
    std::optional<long> status;      // nothing: no answer expected
  };
  const Case cases[] = {
      {"never answers (time-out)", std::nullopt, 4 * 1024 * 1024, std::nullopt},
      {"closes mid-answer",
       "HTTP/1.1 200 OK\r\nContent-Length: 100\r\nConnection: close\r\n\r\n{\"entries\":", 4096,
       std::nullopt},
      {"closes before any byte", "", 4096, std::nullopt},
      {"not HTTP at all", "hello there\r\n\r\n", 4096, std::nullopt},
      {"huge body with a length", LocalHttpServer::response(200, big), 4 * 1024 * 1024, std::nullopt},
      {"huge body, chunked",
       "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nConnection: close\r\n\r\n" +
           fmt::format("{:x}\r\n{}\r\n0\r\n\r\n", big.size(), big),
       4 * 1024 * 1024, std::nullopt},
      {"body exactly at the bound", LocalHttpServer::response(200, std::string(4096, 'y')), 4096, 200},
      {"one byte past the bound", LocalHttpServer::response(200, std::string(4097, 'y')), 4096,
       std::nullopt},
  };
  for (const auto& c : cases) {
    LocalHttpServer server([&](const ReceivedRequest&) { return c.raw; });
    auto curl = quickTransport(c.limit);
    HttpRequest request{.method = "GET", .url = server.base() + "/version.json", .headers = {},
                        .body = {}, .timeout = std::chrono::seconds(10)};
    const auto response = curl.perform(request);
    EXPECT_EQ(response ? std::optional<long>(response->status) : std::nullopt, c.status) << c.name;
  }
}

TEST_F(CurlTransportTest, TimeOutEndsAReportAsFailed) {
  LocalHttpServer server([](const ReceivedRequest&) { return std::nullopt; });
  auto curl = quickTransport();
  EXPECT_FALSE(Telemetry::send(bulkyPayload(), curl, Telemetry::Config{server.base(), "k"}));
  EXPECT_EQ(server.requests().size(), 1u);
}

TEST_F(CurlTransportTest, NoServerAndStopRequestsGiveNothing) {
  int closedPort = 0;
  {
    LocalHttpServer gone(always(""));
    closedPort = gone.port();
  }
  CurlTransport curl;
  HttpRequest request{.method = "GET", .url = fmt::format("http://127.0.0.1:{}/", closedPort),
                      .headers = {}, .body = {}, .timeout = std::chrono::seconds(10)};
  EXPECT_FALSE(curl.perform(request));

  LocalHttpServer silent([](const ReceivedRequest&) { return std::nullopt; });
  std::stop_source stop;
  stop.request_stop();
  CurlOptions options;
  options.stop = stop.get_token();
  CurlTransport stopped(options);
  request.url = silent.base() + "/";
  EXPECT_FALSE(stopped.perform(request));

  for (const char* url : {"ftp://127.0.0.1/", "file:///etc/passwd", "not a url", ""}) {
    request.url = url;
    EXPECT_FALSE(curl.perform(request)) << url;
  }
}

TEST_F(CurlTransportTest, ProxyFromTheEnvironmentIsHonoured) {
  LocalHttpServer proxy(always(LocalHttpServer::response(200, R"({"version":"9.0","url":"https://v.example"})")));
  LocalHttpServer target(always(LocalHttpServer::response(500, "")));
  for (const char* name : {"no_proxy", "NO_PROXY"}) ::unsetenv(name);
  ::setenv("http_proxy", proxy.base().c_str(), 1);
  CurlTransport curl;
  HttpGetTransport transport(curl);
  const auto info = UpdateCheck::check("0.2.4", target.base(), transport);
  ::unsetenv("http_proxy");
  EXPECT_TRUE(info);
  EXPECT_TRUE(target.requests().empty());
  ASSERT_EQ(proxy.requests().size(), 1u);
  EXPECT_EQ(proxy.requests()[0].target, target.base() + "/version.json");
}

}  // namespace
}  // namespace vorlan
