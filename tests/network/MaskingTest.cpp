// What leaves the machine: the masks of both reports, the public-identifier rule and the exact
// JSON of the two report bodies.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <regex>

#include "network/CleanupTelemetry.hpp"
#include "network/ScanTelemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

KnowledgeDictionary testDictionary() {
  return KnowledgeDictionary({{"Library/Application Support/Known Notes", DictEntry{}},
                              {"Library/Caches/knowncache", DictEntry{}}});
}

// One table for both rules. `scanMasked`: an unclassified scan finding with this path goes out
// as "<masked-1>". `cleanupPublic`: a cleanup row with this path goes out whole.
TEST(Masking, NamesThatCouldLeakAreMaskedInBothReports) {
  struct Case {
    std::string path;
    bool scanMasked;
    bool cleanupPublic;
  };
  const Case cases[] = {
      // Bare names: personal unless the cleanup rule recognises a public identifier.
      {"Projects", true, false},
      {"김철수", true, false},
      {"kim.lee", true, false},
      {"Foo.bar", true, false},
      {"com.vendor.app", true, true},
      {"", true, false},
      // Dot-names are tool folders in a scan, but not identifiers for cleanup.
      {".cache", false, false},
      {".config", false, false},
      // A trailing slash or a leading "~/" does not turn a bare name into a path.
      {"Projects/", true, false},
      {"Projects//", true, false},
      {"~/Projects", true, false},
      {"~/.gemini", false, false},
      // Paths below the home folder: the last component decides for cleanup.
      {"Library/Caches/com.vendor.app", false, true},
      {"Library/Caches/com.vendor.app/", false, true},
      {"Library/Caches/com.vendor.", false, true},
      {"Library/Caches/com-1.vendor-2.x", false, true},
      {"Library/Caches/com.vendor", false, false},
      {"Library/Caches/com_vendor.app.x", false, false},
      {"Library/Caches/.com.vendor.app", false, false},
      {"Library/Application Support/com.회사.app", false, false},
      {"Library/Application Support/김철수의 일기", false, false},
      {"Library/Caches/kim.lee", false, false},
      {"Library/Caches/com.vendor.app/kim", false, false},
      // The dictionary makes a name public, for its key and what lies below it.
      {"Library/Application Support/Known Notes", false, true},
      {"Library/Application Support/Known Notes/sub", false, true},
      {"Library/Application Support/Known Notesbook", false, false},
      {"Library/Caches/knowncache/", false, true},
      // A user name in an absolute path never leaves, even behind a public last component.
      {"/Users/kim", true, false},
      {"/Users/kim/Library/Caches/com.vendor.app", true, false},
      {"/home/kim/.cache/com.vendor.app", true, false},
      {"/Users//kim/Documents", true, false},
      // System paths stay as they are.
      {"/Library/Application Support/com.apple.idleassetsd/Customer", false, false},
      {"/System/Library/AssetsV2", false, false},
  };
  const auto dictionary = testDictionary();
  for (const auto& c : cases) {
    const auto scan = Telemetry::maskFindings({Finding{c.path, 1, "cat", Grade::unknown, "", ""}});
    ASSERT_EQ(scan.size(), 1u);
    EXPECT_EQ(scan[0].path, c.scanMasked ? "<masked-1>" : c.path) << "scan: '" << c.path << "'";

    EXPECT_EQ(Telemetry::isPublicIdentifier(c.path, dictionary), c.cleanupPublic)
        << "cleanup: '" << c.path << "'";
    int64_t counter = 4;
    EXPECT_EQ(Telemetry::maskCleanupPath(c.path, dictionary, counter),
              c.cleanupPublic ? c.path : "<masked-5>")
        << "cleanup: '" << c.path << "'";
    EXPECT_EQ(counter, c.cleanupPublic ? 4 : 5);
  }
}

TEST(Masking, ScanMasksOnlyUnclassifiedFindingsAndNumbersThemInOrder) {
  const std::vector<Finding> findings = {
      {"Alpha", 10, "개인", Grade::unknown, "note", "hint"},
      {".cache", std::nullopt, "도구", Grade::unknown, "", ""},
      {"Beta", 30, "개인", Grade::unknown, "", ""},
      {"Library/Caches", 40, "캐시", Grade::safe, "", ""},
      {"Movies", 50, "미디어", Grade::never, "", ""},
      {"Alpha", 60, "개인", Grade::unknown, "", ""},
      {"Documents", 70, "문서", Grade::review, "", ""},
  };
  const std::vector<Telemetry::PayloadFinding> expected = {
      {"<masked-1>", 10, "UNKNOWN", "개인"},     {".cache", std::nullopt, "UNKNOWN", "도구"},
      {"<masked-2>", 30, "UNKNOWN", "개인"},     {"Library/Caches", 40, "SAFE", "캐시"},
      {"Movies", 50, "NEVER", "미디어"},         {"<masked-3>", 60, "UNKNOWN", "개인"},
      {"Documents", 70, "REVIEW", "문서"},
  };
  EXPECT_EQ(Telemetry::maskFindings(findings), expected);
  EXPECT_TRUE(Telemetry::maskFindings({}).empty());
}

CleanupItem row(std::string path, int64_t bytes, CleanupVerdict verdict, bool checked) {
  CleanupItem item;
  item.name = path.substr(path.rfind('/') + 1);
  item.path = std::move(path);
  item.bytes = bytes;
  item.verdict = verdict;
  item.checked = checked;
  item.reason = "이유";
  item.what = "무엇";
  item.consequence = "결과";
  item.deletePaths = {"secret/path"};
  return item;
}

TEST(Masking, EachCleanupEventNumbersItsOwnMasks) {
  const std::vector<CleanupItem> items = {
      row("Library/Caches/com.vendor.app", 0, CleanupVerdict::orphan, true),
      row("Library/Application Support/Diary", 70'000'000, CleanupVerdict::unknown, false),
      row("Library/Application Support/Known Notes", 5, CleanupVerdict::needsReview, false),
      row(".cache/mytool", 9, CleanupVerdict::inUse, false),
  };
  const std::vector<Telemetry::CleanupEventItem> expected = {
      {"Library/Caches/com.vendor.app", 0, "orphan", true},
      {"<masked-1>", 70'000'000, "unknown", false},
      {"Library/Application Support/Known Notes", 5, "needs_review", false},
      {"<masked-2>", 9, "in_use", false},
  };
  test::TempDir home;
  for (const char* name : {"deleted", "restored"}) {
    const auto event = Telemetry::buildCleanupEvent(name, items, testDictionary(), "id-1", home.path());
    EXPECT_EQ(event.event, name);
    EXPECT_EQ(event.installId, "id-1");
    EXPECT_EQ(event.items, expected) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(Telemetry::installIDFile(home.path())))
      << "a given id must not create the id file";
}

TEST(ScanReport, BuildsFromTheResultAndAppendsTheMissingFigure) {
  struct Case {
    const char* name;
    std::optional<int64_t> settingsUsed;
    std::vector<std::string> callerErrors;
    std::vector<std::string> expectedErrors;
  };
  const Case cases[] = {
      {"all figures, full access", 500, {}, {}},
      {"no settings figure", std::nullopt, {}, {"settings_used_unavailable"}},
      {"both", std::nullopt, {"fda_denied"}, {"fda_denied", "settings_used_unavailable"}},
      {"access denied only", 500, {"fda_denied"}, {"fda_denied"}},
  };
  for (const auto& c : cases) {
    DeepScanResult result;
    result.diskTotalBytes = 994'660'000'000;
    result.diskFreeBytes = 210'400'000'000;
    result.diskUsedSettingsBytes = c.settingsUsed;
    result.snapshots = {"com.apple.os.update-1", "com.apple.os.update-2"};
    result.cleanupTotals["Library/Caches"] = {1, 2};
    test::TempDir home;
    const auto payload = Telemetry::buildPayload(result, 132.19, std::nullopt, "cli",
                                                 c.callerErrors, std::nullopt, home.path());
    EXPECT_EQ(payload.errors, c.expectedErrors) << c.name;
    EXPECT_EQ(payload.diskUsedSettingsBytes, c.settingsUsed) << c.name;
    EXPECT_EQ(payload.snapshotCount, 2) << c.name;
    EXPECT_EQ(payload.schemaVersion, 1);
    EXPECT_EQ(payload.appVersion, "0.2.4");
    EXPECT_EQ(payload.appKind, "cli");
    EXPECT_EQ(payload.osVersion, Telemetry::osVersion());
    // The id comes from the file, which the first report creates.
    EXPECT_EQ(payload.installId, test::readFile(Telemetry::installIDFile(home.path()))) << c.name;
  }
}

TEST(ScanReport, OsVersionIsMajorDotMinor) {
  struct Case {
    std::string_view release, expected;
  };
  const Case cases[] = {{"14.5.1", "14.5"}, {"14", "14.0"}, {"6.1.0-18-amd64", "6.1"}, {"", "0.0"}};
  for (const auto& c : cases) EXPECT_EQ(Telemetry::majorMinor(c.release), c.expected) << c.release;
  EXPECT_TRUE(std::regex_match(Telemetry::osVersion(), std::regex("^[0-9]+\\.[0-9]+$")));
}

Telemetry::Payload samplePayload() {
  Telemetry::Payload payload;
  payload.installId = "0b8f7e7c-1f3a-4c5e-9d2b-123456789abc";
  payload.appKind = "gui";
  payload.osVersion = "14.5";
  payload.diskTotalBytes = 994660000000;
  payload.diskFreeBytes = 210400000000;
  payload.snapshotCount = 1;
  payload.findings = {{"Library/Caches", 12300000000, "SAFE", "캐시"},
                      {"<masked-1>", std::nullopt, "UNKNOWN", "미분류"}};
  payload.errors = {"settings_used_unavailable"};
  return payload;
}

TEST(ScanReport, WireBodyIsTheDocumentedEnvelope) {
  auto payload = samplePayload();
  EXPECT_EQ(Telemetry::encodeEnvelope(payload),
            R"({"payload":{"schema_version":1,"install_id":"0b8f7e7c-1f3a-4c5e-9d2b-123456789abc",)"
            R"("app_kind":"gui","app_version":"0.2.4","os_version":"14.5",)"
            R"("disk_total_bytes":994660000000,"disk_free_bytes":210400000000,"snapshot_count":1,)"
            R"("findings":[{"path":"Library\/Caches","size_bytes":12300000000,"grade":"SAFE","category":"캐시"},)"
            R"({"path":"<masked-1>","grade":"UNKNOWN","category":"미분류"}],)"
            R"("errors":["settings_used_unavailable"]}})");

  payload.diskUsedSettingsBytes = 784300000000;
  payload.systemDataGbManual = 132.19;
  payload.durationS = 542.5;
  payload.runningContainers = 0;
  payload.findings.clear();
  payload.errors.clear();
  const auto body = nlohmann::json::parse(Telemetry::encodeEnvelope(payload));
  const auto& p = body.at("payload");
  EXPECT_EQ(p.at("disk_used_settings_bytes"), 784300000000);
  EXPECT_EQ(p.at("system_data_gb_manual"), 132.19);
  EXPECT_EQ(p.at("duration_s"), 542.5);
  EXPECT_EQ(p.at("running_containers"), 0);
  EXPECT_EQ(p.at("findings"), nlohmann::json::array());
  EXPECT_EQ(p.at("errors"), nlohmann::json::array());
}

TEST(ScanReport, OddValuesStillEncodeWithoutNulls) {
  auto payload = samplePayload();
  payload.systemDataGbManual = std::numeric_limits<double>::infinity();
  payload.durationS = std::numeric_limits<double>::quiet_NaN();
  payload.findings = {{std::string("Library/\xff\xfe", 10), 1, "REVIEW", "x"}};
  const std::string body = Telemetry::encodeEnvelope(payload);
  EXPECT_EQ(body.find("null"), std::string::npos) << body;
  EXPECT_EQ(body.find("system_data_gb_manual"), std::string::npos);
  EXPECT_EQ(nlohmann::json::parse(body).at("payload").at("findings").at(0).at("path"),
            "Library/\uFFFD\uFFFD");
}

TEST(ScanReport, PreviewIsPrettyWithPlainSlashesAndTheSameContent) {
  const auto payload = samplePayload();
  const std::string preview = Telemetry::renderPreview(payload);
  EXPECT_TRUE(preview.starts_with("{\n  \"schema_version\": 1,\n  \"install_id\": ")) << preview;
  EXPECT_NE(preview.find("\"Library/Caches\""), std::string::npos);
  EXPECT_EQ(preview.find("\\/"), std::string::npos);
  EXPECT_EQ(nlohmann::json::parse(preview),
            nlohmann::json::parse(Telemetry::encodeEnvelope(payload)).at("payload"));
}

TEST(CleanupReport, WireBodyIsTheDocumentedEnvelope) {
  Telemetry::CleanupEvent event;
  event.installId = "id";
  event.event = "unchecked";
  event.items = {{"Library/Caches/com.vendor.app", 70000000, "regenerable", true},
                 {"<masked-1>", 0, "stale", true}};
  EXPECT_EQ(Telemetry::encodeCleanupEnvelope(event),
            R"({"payload":{"schema_version":1,"install_id":"id","app_version":"0.2.4","event":"unchecked",)"
            R"("items":[{"path":"Library\/Caches\/com.vendor.app","bytes":70000000,"verdict":"regenerable","checked":true},)"
            R"({"path":"<masked-1>","bytes":0,"verdict":"stale","checked":true}]}})");
}

}  // namespace
}  // namespace vorlan
