// The command line's network features end to end: the built `vorlan` against a local server,
// with a temporary home folder.
#include <gtest/gtest.h>

#include <future>
#include <thread>
#include <nlohmann/json.hpp>

#include "network/LocalHttpServer.hpp"
#include "network/Telemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::test {
namespace {

namespace fs = std::filesystem;
const std::string kVersion(Telemetry::appVersion);

// No deployment value of the build and no proxy of the machine may leak into these runs.
ProcessOutcome vorlan(const TempDir& home, std::vector<std::string> args, std::map<std::string, std::string> env) {
  env.insert({{"VORLAN_TELEMETRY_URL", ""}, {"VORLAN_TELEMETRY_ANON_KEY", "anon-key"}, {"VORLAN_UPDATE_ENDPOINT", ""},
              {"VORLAN_EXPLAIN_ENDPOINT", ""}, {"no_proxy", "127.0.0.1"}, {"NO_PROXY", "127.0.0.1"}});
  return runCli(home.path(), std::move(args), {.env = std::move(env)});
}

// Versions, plain-http links and broken answers are the update check's own tests; here the
// command line prints what it found after its own line, and nothing when nobody answers.
TEST(NetworkCli, VersionIsTheLiteralAndTellsOfANewerPublishedOne) {
  auto server = std::make_optional<LocalHttpServer>([](const ReceivedRequest&) {
    return LocalHttpServer::response(200, R"({"version":"9.1.0","url":"https://vorlan.example/get"})");
  });
  const std::map<std::string, std::string> env{{"VORLAN_UPDATE_ENDPOINT", server->base()}};
  TempDir home;
  for (const std::string note : {"새 버전이 나왔습니다: 9.1.0 — https://vorlan.example/get\n", ""}) {
    const auto r = vorlan(home, {"--version"}, env);
    EXPECT_EQ(r.exitCode, 0) << note;
    EXPECT_EQ(r.out, "vorlan " + kVersion + "\n" + note);
    EXPECT_EQ(r.err, "") << note;
    server.reset();  // nobody listens there any more
  }
}

// The masks and the wire body are the clients' own tests; here the consent comes first, then
// one line on how the sending went, and the preview prints the body and sends nothing.
TEST(NetworkCli, ShareSendsTheMaskedReportAPreviewSendsNothingAndAFailureCostsOneLine) {
  const std::string consent = std::string(Telemetry::consentSummary) + "\n";
  // Status 0: no back-end is configured.
  const struct { std::string flag; int status; size_t sent; std::string line; } cases[] = {
      {"--share", 201, 1, "익명 스캔 통계를 보냈습니다.\n"},
      {"--share", 401, 1, "vorlan: 익명 통계를 보내지 못했습니다. 스캔 결과에는 영향이 없습니다.\n"},
      {"--share", 0, 0, "vorlan: 통계 서버가 설정되지 않아 익명 통계를 보내지 않았습니다.\n"},
      {"--share-preview", 201, 0, ""}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.flag + " " + std::to_string(c.status));
    LocalHttpServer server([&](const ReceivedRequest&) { return LocalHttpServer::response(c.status, ""); });
    TempDir home;
    writeFile(home / "Private Projects/notes.txt", std::string(10000, 'x'));
    const auto r = vorlan(home, {"scan", "--no-progress", c.flag},
                          {{"VORLAN_TELEMETRY_URL", c.status != 0 ? server.base() : ""}});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, consent + c.line);
    EXPECT_EQ(server.requests().size(), c.sent);
    // Only the preview prints the body, on a line of its own, with no personal folder name in it.
    EXPECT_EQ(r.out.contains("\n{\"payload\":{"), c.flag == "--share-preview") << r.out;
    EXPECT_FALSE(r.out.contains("Private Projects")) << r.out;
  }
}

// Nothing left to delete after the last look: the refusals are still sent.
TEST(NetworkCli, CleanWithNothingToDeleteStillSendsTheRefusals) {
  LocalHttpServer server([](const ReceivedRequest&) { return LocalHttpServer::response(201, ""); });
  TempDir home, bin;
  allocateFile(home / "Library/Caches/com.gone.app/blob", 60'000'000);   // ticked by the plan
  allocateFile(home / "Library/Caches/com.test.busy/blob", 60'000'000);  // a running program's
  fs::copy_file("/bin/sleep", bin / "com.test.busy");
  const auto sleeper = std::async(std::launch::async, [&] { return runProcess({(bin / "com.test.busy").string(), "2"}); });
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // only to let it start; not a check
  const auto r = vorlan(home, {"clean", "--yes", "--share", "--no-progress", "Library/Caches/com.test.busy"},
                        {{"VORLAN_TELEMETRY_URL", server.base()}});
  EXPECT_TRUE(r.out.contains("지울 항목이 없습니다.")) << r.out << "\n" << r.err;
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1u) << r.err;
  const auto payload = nlohmann::json::parse(requests[0].body)["payload"];
  EXPECT_EQ(payload["event"], "unchecked");
  EXPECT_EQ(payload["items"][0]["path"], "Library/Caches/com.gone.app");
}

}  // namespace
}  // namespace vorlan::test
