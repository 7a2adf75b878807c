// The command line's network features end to end: the built `vorlan` against a local server,
// with a temporary home folder. Features whose flags a command does not accept yet are skipped.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "Version.hpp"
#include "network/LocalHttpServer.hpp"
#include "network/Telemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::LocalHttpServer;
using test::ProcessOptions;
using test::ProcessOutcome;
using test::ReceivedRequest;
using test::TempDir;

// No deployment value of the build and no proxy of the machine may leak into these runs.
ProcessOptions quietOptions(const TempDir& home, std::map<std::string, std::string> env = {}) {
  ProcessOptions options;
  options.env = {{"HOME", home.path().string()},
                 {"VORLAN_TELEMETRY_URL", ""},
                 {"VORLAN_TELEMETRY_ANON_KEY", "anon-key"},
                 {"VORLAN_EXPLAIN_ENDPOINT", ""},
                 {"VORLAN_UPDATE_ENDPOINT", ""},
                 {"no_proxy", "127.0.0.1,localhost"},
                 {"NO_PROXY", "127.0.0.1,localhost"}};
  for (auto& [k, v] : env) options.env[k] = v;
  options.timeoutSeconds = 120;
  return options;
}

ProcessOutcome vorlan(std::vector<std::string> args, const ProcessOptions& options) {
  args.insert(args.begin(), test::cliPath());
  return test::runProcess(args, options);
}

bool notWiredYet(const ProcessOutcome& outcome) {
  return outcome.exitCode == 2 || outcome.err.find("준비되지 않았습니다") != std::string::npos;
}

size_t lineCount(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

// Lines on stderr beyond the consent text.
std::string withoutConsent(std::string err) {
  const std::string consent = std::string(Telemetry::consentSummary) + "\n";
  if (auto at = err.find(consent); at != std::string::npos) err.erase(at, consent.size());
  return err;
}

// A child folder of a cleanup parent with a reverse-DNS name and real allocated bytes.
void makePublicFolder(const TempDir& home, const std::string& rel, off_t bytes) {
  fs::create_directories(home / rel);
  int fd = ::open((home / rel / "blob").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::posix_fallocate(fd, 0, bytes), 0);
  ::close(fd);
}

TEST(NetworkCli, VersionLiteralIsTheOneTheBuildReads) {
  // The build takes the version from the same line, with the same two patterns.
  std::ifstream header(fs::path(VORLAN_SOURCE_DIR) / "VorlanCore/Version.hpp");
  std::string line, fromHeader;
  const std::regex declaration("appVersion = \"[0-9.]+\""), number("[0-9]+\\.[0-9]+\\.[0-9]+");
  while (std::getline(header, line)) {
    std::smatch found;
    if (std::regex_search(line, declaration) && std::regex_search(line, found, number)) {
      fromHeader = found.str();
      break;
    }
  }
  EXPECT_EQ(fromHeader, Telemetry::appVersion);

  TempDir home;
  auto outcome = vorlan({"--version"}, quietOptions(home));
  EXPECT_EQ(outcome.exitCode, 0);
  EXPECT_EQ(outcome.out, "vorlan " + std::string(Telemetry::appVersion) + "\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(NetworkCli, VersionTellsOfANewerPublishedVersionAndIsSilentOtherwise) {
  struct Case {
    const char* name;
    std::optional<std::string> answer;  // nothing: no server at all
    std::string extraLine;
  };
  const Case cases[] = {
      {"newer", LocalHttpServer::response(200, R"({"version":"9.1.0","url":"https://vorlan.example/get"})"),
       "새 버전이 나왔습니다: 9.1.0 — https://vorlan.example/get\n"},
      {"same version", LocalHttpServer::response(200, R"({"version":"0.2.4","url":"https://v.example"})"), ""},
      {"http link", LocalHttpServer::response(200, R"({"version":"9.1.0","url":"http://v.example"})"), ""},
      {"server error", LocalHttpServer::response(500, R"({"version":"9.1.0","url":"https://v.example"})"), ""},
      {"garbage", LocalHttpServer::response(200, "<html>"), ""},
      {"nobody listening", std::nullopt, ""},
  };
  for (const auto& c : cases) {
    std::string endpoint;
    {
      LocalHttpServer gone([](const ReceivedRequest&) { return std::string(); });
      endpoint = gone.base();
    }
    std::optional<LocalHttpServer> server;
    if (c.answer) {
      server.emplace([&](const ReceivedRequest&) { return *c.answer; });
      endpoint = server->base() + "/";
    }
    TempDir home;
    auto outcome = vorlan({"--version"}, quietOptions(home, {{"VORLAN_UPDATE_ENDPOINT", endpoint}}));
    EXPECT_EQ(outcome.exitCode, 0) << c.name;
    EXPECT_EQ(outcome.out, "vorlan 0.2.4\n" + c.extraLine) << c.name;
    EXPECT_EQ(outcome.err, "") << c.name;
    if (server) {
      EXPECT_EQ(server->requests().size(), 1u) << c.name;
    }
  }
}

TEST(NetworkCli, SharePreviewPrintsTheBodyAndSendsNothing) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home;
  fs::create_directories(home / "Private Projects");
  test::writeFile(home / "Private Projects/notes.txt", std::string(10000, 'x'));
  auto outcome = vorlan({"scan", "--no-progress", "--share", "--share-preview"},
                        quietOptions(home, {{"VORLAN_TELEMETRY_URL", server.base()}}));
  if (notWiredYet(outcome)) GTEST_SKIP() << "scan does not take --share yet: " << outcome.err;
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_TRUE(server.requests().empty());
  EXPECT_NE(outcome.err.find(Telemetry::consentSummary), std::string::npos);
  // The body is one line of its own on stdout.
  std::optional<nlohmann::json> body;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with("{\"payload\":")) body = nlohmann::json::parse(line);
  ASSERT_TRUE(body) << outcome.out;
  EXPECT_EQ(body->at("payload").at("app_version"), "0.2.4");
  EXPECT_EQ(outcome.out.find("Private Projects"), std::string::npos)
      << "a personal folder name must not appear in the body";
}

TEST(NetworkCli, ShareSendsTheMaskedReportAndFailuresCostOneLine) {
  struct Case {
    const char* name;
    int status;
    bool configured;
  };
  const Case cases[] = {{"accepted", 201, true}, {"refused", 401, true}, {"no back-end", 201, false}};
  for (const auto& c : cases) {
    LocalHttpServer server([&](const ReceivedRequest&) { return LocalHttpServer::response(c.status, ""); });
    TempDir home;
    fs::create_directories(home / "Private Projects");
    auto outcome = vorlan({"scan", "--no-progress", "--share"},
                          quietOptions(home, {{"VORLAN_TELEMETRY_URL", c.configured ? server.base() : ""}}));
    if (notWiredYet(outcome)) GTEST_SKIP() << "scan does not take --share yet: " << outcome.err;
    EXPECT_EQ(outcome.exitCode, 0) << c.name << ": " << outcome.err;
    EXPECT_LE(lineCount(withoutConsent(outcome.err)), 1u) << c.name << ": " << outcome.err;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), c.configured ? 1u : 0u) << c.name;
    if (!c.configured) continue;
    EXPECT_EQ(requests[0].target, "/rest/v1/scan_reports");
    EXPECT_EQ(requests[0].header("apikey"), "anon-key");
    EXPECT_EQ(requests[0].body.find("Private Projects"), std::string::npos) << requests[0].body;
    const auto payload = nlohmann::json::parse(requests[0].body).at("payload");
    EXPECT_EQ(payload.at("app_kind"), "cli");
    EXPECT_EQ(payload.at("install_id"), test::readFile(Telemetry::installIDFile(home.path())));
  }
}

TEST(NetworkCli, ExplainPrintsTheRequestThenTheExplainedRows) {
  TempDir home;
  makePublicFolder(home, ".cache/com.example.tool", 60'000'000);
  makePublicFolder(home, ".cache/Private Diary", 60'000'000);
  struct Case {
    const char* name;
    std::string answer;
    bool explained;
  };
  const Case cases[] = {
      {"answered",
       LocalHttpServer::response(200, R"({"entries":{".cache/com.example.tool":{"what":"예제 도구의 내려받기 캐시","deletePaths":["Documents"]}}})"),
       true},
      {"service fails", LocalHttpServer::response(500, ""), false},
  };
  for (const auto& c : cases) {
    LocalHttpServer server([&](const ReceivedRequest&) { return c.answer; });
    auto outcome = vorlan({"plan", "--no-progress", "--explain"},
                          quietOptions(home, {{"VORLAN_EXPLAIN_ENDPOINT", server.base()}}));
    if (notWiredYet(outcome)) GTEST_SKIP() << "plan does not take --explain yet: " << outcome.err;
    EXPECT_EQ(outcome.exitCode, 0) << c.name << ": " << outcome.err;
    const std::string request = R"({"paths":[".cache/com.example.tool"]})";
    EXPECT_NE(outcome.out.find(request + "\n"), std::string::npos) << c.name << ": " << outcome.out;
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u) << c.name;
    EXPECT_EQ(requests[0].body, request) << "what is printed is what goes out";
    EXPECT_EQ(outcome.out.find("예제 도구의 내려받기 캐시") != std::string::npos, c.explained) << c.name;
    EXPECT_LE(lineCount(outcome.err), 1u) << c.name << ": " << outcome.err;
  }
}

TEST(NetworkCli, CleanShareSendsTheEventsOfTheRun) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home;
  makePublicFolder(home, ".cache/com.example.tool", 1'000'000);
  makePublicFolder(home, ".cache/Private Diary", 1'000'000);
  auto outcome = vorlan({"clean", "--yes", "--share", ".cache/com.example.tool", ".cache/Private Diary"},
                        quietOptions(home, {{"VORLAN_TELEMETRY_URL", server.base()}}));
  if (notWiredYet(outcome)) GTEST_SKIP() << "clean does not take --share yet: " << outcome.err;
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  std::vector<std::string> events;
  for (const auto& r : server.requests()) {
    EXPECT_EQ(r.target, "/rest/v1/cleanup_events");
    EXPECT_EQ(r.body.find("Private Diary"), std::string::npos) << r.body;
    const auto payload = nlohmann::json::parse(r.body).at("payload");
    events.push_back(payload.at("event"));
    if (payload.at("event") == "deleted") {
      std::set<std::string> paths;
      for (const auto& item : payload.at("items")) paths.insert(item.at("path"));
      EXPECT_EQ(paths, (std::set<std::string>{".cache/com.example.tool", "<masked-1>"}));
    }
  }
  EXPECT_NE(std::find(events.begin(), events.end(), "deleted"), events.end());
}

}  // namespace
}  // namespace vorlan
