// backend/schema.sql on a real PostgreSQL server: a throwaway cluster in a temporary folder,
// reachable only through a Unix socket there. The client's own reports go in as `anon`; read,
// change and delete stay closed to it.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include "network/CleanupTelemetry.hpp"
#include "network/ScanTelemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

// Runs the cluster's programs, as nobody when the test is root (initdb and postgres refuse
// root), and stops the server and removes its folder however the test ends.
struct ThrowawayCluster {
  std::string bin, folder;
  std::vector<std::string> asServer = {};
  bool started = false;
  ~ThrowawayCluster() {
    if (started) run({"pg_ctl", "-D", folder + "/data", "-m", "immediate", "-w", "stop"});
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  test::ProcessOutcome run(std::vector<std::string> argv, std::optional<std::string> input = {}) const {
    argv[0] = bin + "/" + argv[0];
    argv.insert(argv.begin(), asServer.begin(), asServer.end());
    return test::runProcess(argv, {.env = {{"LC_ALL", "C"}}, .stdinText = input, .timeoutSeconds = 120});
  }
};

TEST(BackendSchema, AnonMayInsertTheClientsReportsAndNothingElse) {
  const auto bin = test::runProcess({"/bin/sh", "-c",
                                     "d=$(pg_config --bindir 2>/dev/null); [ -x \"$d/initdb\" ] || "
                                     "d=$(ls -d /usr/lib/postgresql/*/bin | sort -V | tail -n 1); "
                                     "[ -x \"$d/initdb\" ] && [ -x \"$d/psql\" ] && printf %s \"$d\""});
  if (bin.exitCode != 0) GTEST_SKIP() << "no PostgreSQL server binaries (initdb, pg_ctl, postgres, psql) installed";
  std::string folder = "/tmp/vorlan-pg-XXXXXX";  // short: a socket path has a length limit
  ASSERT_TRUE(::mkdtemp(folder.data()));
  ThrowawayCluster db{bin.out, folder};
  if (test::runningAsRoot()) {
    const passwd* nobody = ::getpwnam("nobody");
    ASSERT_TRUE(nobody && ::chown(folder.c_str(), nobody->pw_uid, nobody->pw_gid) == 0);
    db.asServer = {"/usr/bin/env", "setpriv", "--reuid=nobody", "--regid=" + std::to_string(nobody->pw_gid),
                   "--clear-groups"};
  }
  const auto init = db.run({"initdb", "-D", folder + "/data", "-U", "postgres", "--auth=trust", "--encoding=UTF8", "--no-sync"});
  ASSERT_EQ(init.exitCode, 0) << init.out << init.err;
  db.started = true;  // pg_ctl may leave a server behind even when it gives up waiting
  const auto start = db.run({"pg_ctl", "-D", folder + "/data", "-l", folder + "/log", "-w", "-o",
                             "-k " + folder + " -c listen_addresses='' -c fsync=off", "start"});
  ASSERT_EQ(start.exitCode, 0) << start.err << test::readFile(folder + "/log");

  // The bodies exactly as the client builds them, Korean text, masks and escaped slashes included.
  DeepScanResult result;
  result.findings = {{"Library/Caches", 12'300'000'000, "캐시", Grade::safe, "", ""}, {"김철수", 6, "미분류", Grade::unknown, "", ""}};
  test::TempDir home;
  const std::string scan = Telemetry::encodeEnvelope(
      Telemetry::buildPayload(result, 132.19, 542.0, "cli", {"fda_denied"}, "id-1", home.path()));
  const std::string event = Telemetry::encodeCleanupEnvelope(
      Telemetry::buildCleanupEvent("deleted", {CleanupItem{}}, KnowledgeDictionary{}, "id-1", home.path()));
  const auto psql = [&](const std::string& sql) {
    return db.run({"psql", "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1", "-h", folder, "-U", "postgres",
                   "-v", "scan=" + scan, "-v", "event=" + event}, sql);
  };
  const std::string schema = test::readFile(std::filesystem::path(VORLAN_SOURCE_DIR) / "backend/schema.sql");
  const auto applied = psql(schema + schema);  // it must be safe to apply again
  ASSERT_EQ(applied.exitCode, 0) << applied.err;

  // The back-end's REST layer stores the body's "payload" member, as these statements do.
  for (const auto& [sql, allowed] : std::initializer_list<std::pair<const char*, bool>>{
           {"insert into public.scan_reports (payload) values ((:'scan'::jsonb)->'payload')", true},
           {"insert into public.cleanup_events (payload) values ((:'event'::jsonb)->'payload')", true},
           {"select count(*) from public.scan_reports", false},
           {"select payload from public.cleanup_events", false},
           {"insert into public.scan_reports (payload) values ('{}') returning payload", false},
           {"update public.scan_reports set payload = '{}'", false},
           {"delete from public.cleanup_events", false}}) {
    const auto outcome = psql(std::string("set role anon;\n") + sql + ";\n");
    EXPECT_EQ(outcome.exitCode == 0, allowed) << sql << ": " << outcome.err;
    EXPECT_EQ(outcome.err.find("permission denied") != std::string::npos, !allowed) << sql << ": " << outcome.err;
  }
  // Exactly the two accepted rows arrived, as posted.
  const auto stored = psql("select count(*), bool_and(payload = (:'scan'::jsonb)->'payload') from public.scan_reports;\n"
                           "select count(*), bool_and(payload = (:'event'::jsonb)->'payload') from public.cleanup_events;\n");
  EXPECT_EQ(stored.out, "1|t\n1|t\n") << stored.err;
}

}  // namespace
}  // namespace vorlan
