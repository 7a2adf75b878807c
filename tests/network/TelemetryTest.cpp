// What may leave the machine: the masks of both reports, the wire bodies, the configuration that
// switches reports off, and the install id file.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "network/CleanupTelemetry.hpp"
#include "network/ScanTelemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

// `scanMasked`: an unclassified scan finding with this path goes out as "<masked-1>".
// `cleanupPublic`: a cleanup row with this path goes out whole; otherwise as "<masked-N>".
TEST(Masking, NamesThatCouldLeakAreMaskedInBothReports) {
  const KnowledgeDictionary dictionary({{"Library/Application Support/Known Notes", DictEntry{}}});
  for (const auto& [path, scanMasked, cleanupPublic] : std::vector<std::tuple<std::string, bool, bool>>{
           {"Projects", true, false}, {"Projects/", true, false}, {"~/Projects", true, false}, {"김철수", true, false},
           {"kim.lee", true, false}, {".cache", false, false}, {"com.vendor.app", true, true},
           {"Library/Caches/com.vendor.app/", false, true}, {"Library/Caches/com.vendor", false, false},
           {"Library/Caches/kim.lee", false, false}, {"Library/Caches/.com.vendor.app", false, false},
           {"Library/Caches/com.vendor.app/kim", false, false}, {"Library/Application Support/com.회사.app", false, false},
           {"Library/Application Support/김철수의 일기", false, false},
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
  if (Telemetry::defaultURL.empty() || Telemetry::defaultAnonKey.empty()) {  // a plain build
    ::unsetenv(urlVar.c_str());
    ::unsetenv(keyVar.c_str());
    EXPECT_FALSE(Telemetry::send({}, forbidden));
  }
}

const std::regex uuidForm("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");

TEST(InstallID, KeepsAStoredIdAndReplacesABlankOne) {
  // Without an expected id, a new UUID is written in place of what was there.
  for (const auto& [content, expectedID] : std::vector<std::pair<std::optional<std::string>, std::optional<std::string>>>{
           {std::nullopt, std::nullopt}, {"  0b8f7e7c-1f3a \n", "0b8f7e7c-1f3a"}, {"abc\r\n", "abc"},
           {"\n\n\n", std::nullopt}, {" \t ", std::nullopt}, {"", std::nullopt}}) {
    test::TempDir home;
    const auto file = Telemetry::installIDFile(home.path());
    if (content) test::writeFile(file, *content);
    const std::string id = Telemetry::installID(file), name = content.value_or("no file");
    EXPECT_EQ(Telemetry::installID(file), id) << name << ": the next read finds the same id";
    EXPECT_EQ(test::readFile(file), expectedID ? *content : id) << name;
    EXPECT_TRUE(expectedID ? id == *expectedID : std::regex_match(id, uuidForm)) << name << ": " << id;
  }
}

TEST(InstallID, AnUnstorableIdIsUnknownAndTriedAgainLater) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root writes into read-only folders";
  test::TempDir home;
  const auto file = Telemetry::installIDFile(home.path());
  ASSERT_EQ(::chmod(home.path().c_str(), 0500), 0);
  EXPECT_EQ(Telemetry::installID(file), "unknown");
  ASSERT_EQ(::chmod(home.path().c_str(), 0700), 0);
  EXPECT_TRUE(std::regex_match(Telemetry::installID(file), uuidForm));
}

}  // namespace
}  // namespace vorlan
