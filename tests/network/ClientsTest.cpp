// What may leave the machine and what comes back: the masks of both reports, the wire bodies,
// the configuration that switches reports off and the install id file; the explain client
// (which rows may be asked about, what an answer may change) and the update check (versions,
// only https links); and the libcurl transport against a real HTTP server on 127.0.0.1.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "network/CleanupTelemetry.hpp"
#include "network/CurlTransport.hpp"
#include "network/Explain.hpp"
#include "network/LocalHttpServer.hpp"
#include "network/ScanTelemetry.hpp"
#include "network/UpdateCheck.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using test::LocalHttpServer;

// `scanMasked`: an unclassified scan finding with this path goes out as "<masked-1>".
// `cleanupPublic`: a cleanup row with this path goes out whole; otherwise as "<masked-N>".
TEST(Masking, NamesThatCouldLeakAreMaskedInBothReports) {
  const KnowledgeDictionary dictionary({{"Library/Application Support/Known Notes", DictEntry{}}});
  for (const auto& [path, scanMasked, cleanupPublic] : std::vector<std::tuple<std::string, bool, bool>>{
           {"Projects", true, false}, {"Projects/", true, false}, {"~/Projects", true, false}, {"김철수", true, false},
           {"kim.lee", true, false}, {".cache", false, false}, {"com.vendor.app", true, true},
           {"Library/Caches/com.vendor.app/", false, true}, {"Library/Caches/com.vendor", false, false},
           {"Library/Caches/.com.vendor.app", false, false}, {"Library/Caches/com.vendor.app/kim", false, false},
           {"Library/Application Support/com.회사.app", false, false},
           {"Library/Application Support/Known Notes", false, true},
           {"Library/Application Support/Known Notesbook", false, false},
           // An account name never leaves, even behind a public last component.
           {"/Users/kim", true, false}, {"/Users/kim/Library/Caches/com.vendor.app", true, false},
           {"/Users//kim/Documents", true, false}, {"/home/kim/.cache/com.vendor.app", true, false},
           {"/System/Library/AssetsV2", false, false}}) {
    const auto scan = Telemetry::maskFindings({Finding{path, 1, "cat", Grade::unknown, "", ""}});
    EXPECT_EQ(scan.at(0).path, scanMasked ? "<masked-1>" : path) << "scan: " << path;
    int64_t counter = 4;
    EXPECT_EQ(Telemetry::maskCleanupPath(path, dictionary, counter), cleanupPublic ? path : "<masked-5>") << path;
  }
}

TEST(WireBody, TheScanEnvelopeIsTheAgreedJsonAndNeverBreaksOnOddValues) {
  Telemetry::Payload payload;
  payload.durationS = 542.5;
  payload.findings = {{"Library/Caches", 12300000000, "SAFE", "캐시"}, {"<masked-1>", std::nullopt, "UNKNOWN", "미분류"}};
  payload.errors = {"settings_used_unavailable"};
  EXPECT_EQ(Telemetry::encodeEnvelope(payload),
            R"({"payload":{"schema_version":1,"install_id":"","app_kind":"","app_version":"0.2.4","os_version":"",)"
            R"("disk_total_bytes":0,"disk_free_bytes":0,"duration_s":542.5,"snapshot_count":0,"findings":[)"
            R"({"path":"Library\/Caches","size_bytes":12300000000,"grade":"SAFE","category":"캐시"},)"
            R"({"path":"<masked-1>","grade":"UNKNOWN","category":"미분류"}],"errors":["settings_used_unavailable"]}})");

  payload.durationS = std::numeric_limits<double>::quiet_NaN();
  payload.findings = {{std::string("Library/\xff\xfe", 10), 1, "REVIEW", "x"}};  // not UTF-8
  const std::string body = Telemetry::encodeEnvelope(payload);
  EXPECT_EQ(body.find("null"), std::string::npos) << body;
  EXPECT_EQ(nlohmann::json::parse(body)["payload"]["findings"][0]["path"], "Library/\uFFFD\uFFFD");
}

// A transport that must never be reached.
struct ForbiddenTransport final : HttpTransport {
  std::optional<HttpResponse> perform(const HttpRequest& request) override {
    ADD_FAILURE() << "a request went out: " << request.url;
    return std::nullopt;
  }
};

TEST(TelemetryConfig, NothingLeavesWithoutABackEnd) {
  const std::string url = "https://x.example", urlVar = "VORLAN_TELEMETRY_URL", keyVar = "VORLAN_TELEMETRY_ANON_KEY";
  using Case = std::tuple<const char*, Environment, std::string_view, std::string_view, std::optional<Telemetry::Config>>;
  const Case cases[] = {
      {"defaults alone", {}, url, "key", Telemetry::Config{url, "key"}},
      {"plain build", {}, "", "", std::nullopt},
      {"blank URL switches off", {{urlVar, " \t"}}, url, "key", std::nullopt},
      {"ideographic space is blank", {{urlVar, "\u3000"}}, url, "key", std::nullopt},
      {"empty key switches off", {{keyVar, ""}}, url, "key", std::nullopt},
  };
  ForbiddenTransport forbidden;
  Telemetry::CleanupEvent event;
  event.items = {{"<masked-1>", 1, "unknown", false}};
  for (const auto& [name, env, defaultURL, defaultKey, expected] : cases) {
    const auto config = Telemetry::resolveConfig(env, defaultURL, defaultKey);
    EXPECT_EQ(config, expected) << name;
    EXPECT_TRUE(config || (!Telemetry::send({}, forbidden, config) && !Telemetry::sendCleanupEvent(event, forbidden, config)))
        << name;
  }
  // Requests that cannot be made safely are not made at all.
  for (const auto& config : {Telemetry::Config{"ftp://h.example", "k"}, {"https://h.example", "k\r\nX-Injected: 1"}})
    EXPECT_FALSE(Telemetry::send({}, forbidden, config)) << config.anonKey;
}

const std::regex uuidForm("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");

TEST(InstallID, KeepsAStoredIdReplacesABlankOneAndRetriesAnUnstorableOne) {
  // Without an expected id, a new UUID is written in place of what was there.
  for (const auto& [content, expectedID] : std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>>{
           {std::nullopt, std::nullopt}, {"  0b8f7e7c-1f3a \n", "0b8f7e7c-1f3a"}, {"abc\r\n", "abc"},
           {" \t\n ", std::nullopt}, {"", std::nullopt}}) {
    test::TempDir home;
    const auto file = Telemetry::installIDFile(home.path());
    if (content) test::writeFile(file, *content);
    const std::string id = Telemetry::installID(file), name = content.value_or("no file");
    EXPECT_EQ(Telemetry::installID(file), id) << name << ": the next read finds the same id";
    EXPECT_EQ(test::readFile(file), expectedID ? *content : id) << name;
    EXPECT_TRUE(expectedID ? id == *expectedID : std::regex_match(id, uuidForm)) << name << ": " << id;
  }

  // An id that cannot be stored is "unknown", and storing it is tried again later.
  if (test::runningAsRoot()) GTEST_SKIP() << "root writes into read-only folders";
  test::TempDir home;
  const auto file = Telemetry::installIDFile(home.path());
  ASSERT_EQ(::chmod(home.path().c_str(), 0500), 0);
  EXPECT_EQ(Telemetry::installID(file), "unknown");
  ASSERT_EQ(::chmod(home.path().c_str(), 0700), 0);
  EXPECT_TRUE(std::regex_match(Telemetry::installID(file), uuidForm));
}

CleanupItem item(std::string path, int64_t bytes, CleanupVerdict verdict = CleanupVerdict::unknown) {
  CleanupItem row;
  std::tie(row.path, row.bytes, row.verdict) = std::tie(path, bytes, verdict);
  return row;
}

TEST(Explain, OnlyLargeUnknownPublicRowsLeaveSortedAndBounded) {
  const KnowledgeDictionary dictionary({{"Library/Caches/com.known.app", DictEntry{}}});
  const int64_t big = 9'000'000'000;
  // Which names count as public is the masking table's; one private name stands for them here.
  for (const auto& [row, sent] : std::vector<std::pair<CleanupItem, bool>>{
           {item("Library/Caches/com.a.app", 50'000'000), true}, {item("Library/Caches/com.b.app", 49'999'999), false},
           {item("Library/Caches/com.c.app", big, CleanupVerdict::inUse), false},
           {item("Library/Caches/com.known.app", big), false}, {item("/Users/kim/Library/Caches/com.f.app", big), false}})
    EXPECT_EQ(Explain::paths({row}, dictionary), sent ? std::vector{row.path} : std::vector<std::string>{}) << row.path;

  std::vector<CleanupItem> many;  // given largest first: the limit cuts the sorted list, not the largest
  for (int i = 50; i >= 10; --i) many.push_back(item("Library/Caches/com.v" + std::to_string(i) + ".app", big + i));
  const auto paths = Explain::paths(many, dictionary);
  ASSERT_EQ(paths.size(), 40u);
  EXPECT_EQ(paths.front() + " " + paths.back(), "Library/Caches/com.v10.app Library/Caches/com.v49.app");
  EXPECT_EQ(Explain::renderRequest({"Library/Caches/com.a.app", ".cache/com.b.c"}),
            R"({"paths":["Library/Caches/com.a.app",".cache/com.b.c"]})");
}

struct FakeService final : ExplainTransport, UpdateTransport {
  explicit FakeService(std::optional<std::string> text) : answer(std::move(text)) {}
  std::optional<std::string> post(const std::string&, const std::string& url) override { return get(url); }
  std::optional<std::string> get(const std::string& url) override {
    urls.push_back(url);
    return answer;
  }
  std::optional<std::string> answer;
  std::vector<std::string> urls;
};

TEST(Explain, AnswersNeverNameWhatToDeleteAndNoPathsAskNobody) {
  FakeService good(R"({"entries":{"Library/Caches/com.a.app":{"app":"A","what":"빌드 캐시","grade":"SAFE",
      "deletePaths":["Documents"],"risk":"다시 받습니다","regenerates":true}}})");
  EXPECT_EQ(Explain::fetch({"Library/Caches/com.a.app"}, "https://x.example/", good),
            (std::map<std::string, DictEntry>{
                {"Library/Caches/com.a.app", DictEntry{"A", "빌드 캐시", Grade::safe, {}, "다시 받습니다", true}}}));
  EXPECT_EQ(good.urls, std::vector<std::string>{"https://x.example/explain"});
  EXPECT_FALSE(Explain::fetch({}, "https://x.example", good));  // nothing to ask: no request
  EXPECT_EQ(good.urls.size(), 1u);
}

TEST(UpdateCheck, NewerComparesNumbersPaddedWithZeros) {
  for (const auto& [candidate, current, newer] : std::vector<std::tuple<std::string_view, std::string_view, bool>>{
           {"1.2.10", "1.2.9", true}, {"1.2.9", "1.2.10", false}, {"1.3", "1.2.99", true}, {"1.2.0", "1.2", false},
           {"1.2", "1.2.0", false}, {"1.2.1", "1.2", true}, {"0.10", "0.9", true}, {"0.2.4", "0.2.4", false},
           {"007.1", "7.0", true}, {"1.0-beta", "0.2.4", false}, {"2.0", "0.2.4-dev", false}, {"v9", "0.2.4", false},
           {"", "0.2.4", false}, {"1..2", "0.2.4", false}, {"-1.0", "0.2.4", false}, {"9223372036854775808", "1", false}})
    EXPECT_EQ(UpdateCheck::isNewer(candidate, current), newer) << candidate << " vs " << current;
}

TEST(UpdateCheck, OnlyANewerVersionWithAnHttpsLinkIsOfferedFromTheOneManifest) {
  const std::string site = "https://site.example", manifest = site + "/version.json",
                    newer = R"({"version":"1.0","url":"https://v.example/get"})";
  for (const auto& [endpoint, body, requested] : std::vector<std::tuple<std::string, std::optional<std::string>, std::string>>{
           {site, newer, manifest}, {site + "///", newer, manifest},
           {" https://site.example/v/ ", newer, "https://site.example/v/version.json"},
           {site, R"({"version":"0.2.4","url":"https://v.example"})", manifest},
           {site, R"({"version":"9.0","url":"http://v.example/x"})", manifest},
           {site, R"({"version":9.0,"url":"https://v.example"})", manifest}, {site, "<html>", manifest},
           {"  ", newer, ""}}) {  // empty `requested`: no request at all
    FakeService service(body);
    const bool offered = body == newer && !requested.empty();  // only the good manifest, when asked for
    EXPECT_EQ(UpdateCheck::check("0.2.4", endpoint, service),
              offered ? std::optional(UpdateInfo{"1.0", "https://v.example/get"}) : std::nullopt)
        << endpoint << " " << body.value_or("-");
    EXPECT_EQ(service.urls, requested.empty() ? std::vector<std::string>{} : std::vector{requested}) << endpoint;
  }
}

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
  // 300 is the first status that is no success.
  for (const auto& [status, slash] : std::vector<std::pair<int, std::string>>{{201, ""}, {204, "/"}, {300, "/"}}) {
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
