// backend/schema.sql on a real PostgreSQL server: a throwaway cluster in a temporary folder,
// reachable only through a Unix socket there. The client's own report goes in as `anon`; read,
// change and delete stay closed to it.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "network/CleanupTelemetry.hpp"
#include "network/ScanTelemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::ProcessOptions;
using test::ProcessOutcome;
using test::runProcess;

bool isExecutable(const fs::path& path) { return ::access(path.c_str(), X_OK) == 0; }

std::optional<fs::path> onPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::stringstream dirs(path ? path : "/usr/bin:/bin");
  for (std::string dir; std::getline(dirs, dir, ':');)
    if (!dir.empty() && isExecutable(fs::path(dir) / name)) return fs::path(dir) / name;
  return std::nullopt;
}

// The folder with initdb, pg_ctl and postgres: pg_config's answer, else the newest Debian one.
std::optional<fs::path> postgresBinaries() {
  auto usable = [](const fs::path& dir) {
    return isExecutable(dir / "initdb") && isExecutable(dir / "pg_ctl") && isExecutable(dir / "postgres");
  };
  if (auto pgConfig = onPath("pg_config")) {
    auto answer = runProcess({pgConfig->string(), "--bindir"});
    std::string dir = answer.out.substr(0, answer.out.find('\n'));
    if (answer.exitCode == 0 && usable(dir)) return fs::path(dir);
  }
  std::vector<fs::path> found;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator("/usr/lib/postgresql", ec))
    if (usable(entry.path() / "bin")) found.push_back(entry.path() / "bin");
  if (found.empty()) return std::nullopt;
  std::sort(found.begin(), found.end(), [](const fs::path& a, const fs::path& b) {
    return std::atoi(a.parent_path().filename().c_str()) < std::atoi(b.parent_path().filename().c_str());
  });
  return found.back();
}

// A cluster in its own folder under /tmp: short enough for a socket path, and reachable by the
// unprivileged user that runs the server when the test runs as root (initdb and postgres
// refuse root). The destructor always stops the server and removes the folder.
class ThrowawayPostgres {
 public:
  explicit ThrowawayPostgres(fs::path bin) : bin_(std::move(bin)) {
    std::string tmpl = "/tmp/vorlan-pg-XXXXXX";
    if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
    folder_ = tmpl;
  }

  ~ThrowawayPostgres() {
    if (started_)
      server({(bin_ / "pg_ctl").string(), "-D", dataDir().string(), "-m", "immediate", "-w",
              "-t", "30", "stop"},
             40);
    std::error_code ec;
    fs::remove_all(folder_, ec);
  }

  // Empty when the server runs; else what went wrong.
  std::string start() {
    fs::create_directories(socketDir());
    if (test::runningAsRoot()) {
      passwd* nobody = ::getpwnam("nobody");
      if (!nobody) return "no user 'nobody' to run the server as";
      for (const auto& path : {folder_, socketDir()})
        if (::chown(path.c_str(), nobody->pw_uid, nobody->pw_gid) != 0) return "chown failed";
      if (auto runuser = onPath("runuser"))
        asServer_ = {runuser->string(), "-u", "nobody", "--"};
      else if (auto setpriv = onPath("setpriv"))
        asServer_ = {setpriv->string(), "--reuid=nobody", "--regid=" + std::to_string(nobody->pw_gid),
                     "--clear-groups", "--"};
      else
        return "neither runuser nor setpriv found to leave root";
    }
    auto init = server({(bin_ / "initdb").string(), "-D", dataDir().string(), "-U", "postgres",
                        "--auth=trust", "--locale=C", "--encoding=UTF8", "--no-sync"},
                       120);
    if (init.exitCode != 0) return "initdb failed: " + init.out + init.err;
    const std::string serverOptions = "-k " + socketDir().string() +
                                      " -c listen_addresses='' -c fsync=off";
    started_ = true;  // pg_ctl may leave a server behind even when it gives up waiting
    auto start = server({(bin_ / "pg_ctl").string(), "-D", dataDir().string(), "-l",
                         (folder_ / "server.log").string(), "-w", "-t", "30", "-o", serverOptions,
                         "start"},
                        40);
    if (start.exitCode != 0)
      return "server did not start: " + start.out + start.err + test::readFile(folder_ / "server.log");
    return {};
  }

  // Runs `script` through psql as the superuser; `variables` become psql variables.
  ProcessOutcome psql(const std::string& script,
                      const std::map<std::string, std::string>& variables = {}) const {
    fs::path client = isExecutable(bin_ / "psql") ? bin_ / "psql" : fs::path("/usr/bin/psql");
    std::vector<std::string> argv = {client.string(), "-X", "-q", "-A", "-t", "-v", "ON_ERROR_STOP=1",
                                     "-h", socketDir().string(), "-U", "postgres", "-d", "postgres"};
    for (const auto& [name, value] : variables) {
      argv.push_back("-v");
      argv.push_back(name + "=" + value);
    }
    ProcessOptions options;
    options.stdinText = script;
    options.env = {{"LC_ALL", "C"}, {"PGCONNECT_TIMEOUT", "10"}};
    options.unsetEnv = {"PGHOST", "PGPORT", "PGUSER", "PGDATABASE", "PGSERVICE", "PGOPTIONS"};
    options.timeoutSeconds = 60;
    return runProcess(argv, options);
  }

 private:
  fs::path dataDir() const { return folder_ / "data"; }
  fs::path socketDir() const { return folder_ / "sock"; }

  ProcessOutcome server(std::vector<std::string> argv, double timeout) const {
    argv.insert(argv.begin(), asServer_.begin(), asServer_.end());
    ProcessOptions options;
    options.env = {{"LC_ALL", "C"}};
    options.timeoutSeconds = timeout;
    return runProcess(argv, options);
  }

  fs::path bin_;
  fs::path folder_;
  std::vector<std::string> asServer_;
  bool started_ = false;
};

std::string payloadColumn(const std::string& envelope) {
  return nlohmann::json::parse(envelope).at("payload").dump();
}

TEST(BackendSchema, AnonMayInsertReportsAndNothingElse) {
  auto bin = postgresBinaries();
  if (!bin) GTEST_SKIP() << "no PostgreSQL server binaries (initdb, pg_ctl, postgres) installed";
  ThrowawayPostgres db(*bin);
  const std::string problem = db.start();
  ASSERT_EQ(problem, "");

  const std::string schema = test::readFile(fs::path(VORLAN_SOURCE_DIR) / "backend/schema.sql");
  ASSERT_FALSE(schema.empty());
  for (int run = 1; run <= 2; ++run) {
    auto applied = db.psql(schema);
    ASSERT_EQ(applied.exitCode, 0) << "run " << run << ": " << applied.err;
  }

  // The bodies exactly as the client builds them, Korean text, masks and escaped slashes included.
  DeepScanResult result;
  result.diskTotalBytes = 994'660'000'000;
  result.diskFreeBytes = 210'400'000'000;
  result.findings = {{"Library/Caches", 12'300'000'000, "캐시", Grade::safe, "", ""},
                     {"김철수", 600'000'000, "미분류", Grade::unknown, "", ""}};
  test::TempDir home;
  const auto payload =
      Telemetry::buildPayload(result, 132.19, 542.0, "cli", {"fda_denied"}, "install-1", home.path());
  CleanupItem row;
  row.path = "Library/Caches/com.vendor.app";
  row.bytes = 70'000'000;
  const auto event = Telemetry::buildCleanupEvent("deleted", {row}, KnowledgeDictionary{},
                                                  "install-1", home.path());
  const std::map<std::string, std::string> vars = {
      {"scan", payloadColumn(Telemetry::encodeEnvelope(payload))},
      {"event", payloadColumn(Telemetry::encodeCleanupEnvelope(event))}};

  struct Case {
    const char* name;
    std::string sql;
    const char* error;  // nothing: the statement succeeds
  };
  const std::string asAnon = "set role anon;\n";
  const Case cases[] = {
      {"insert a scan report", asAnon + "insert into public.scan_reports (payload) values (:'scan'::jsonb);", nullptr},
      {"insert a cleanup event", asAnon + "insert into public.cleanup_events (payload) values (:'event'::jsonb);", nullptr},
      {"select reports", asAnon + "select count(*) from public.scan_reports;", "permission denied"},
      {"select events", asAnon + "select payload from public.cleanup_events;", "permission denied"},
      {"read back on insert", asAnon + "insert into public.scan_reports (payload) values ('{}') returning id;", "permission denied"},
      {"update", asAnon + "update public.scan_reports set payload = '{}';", "permission denied"},
      {"delete reports", asAnon + "delete from public.scan_reports;", "permission denied"},
      {"delete events", asAnon + "delete from public.cleanup_events;", "permission denied"},
      {"truncate", asAnon + "truncate public.cleanup_events;", "permission denied"},
      {"choose the id", asAnon + "insert into public.scan_reports (id, payload) overriding system value values (7, '{}');", "permission denied"},
      {"choose the time", asAnon + "insert into public.cleanup_events (received_at, payload) values (now(), '{}');", "permission denied"},
      {"payload not an object", asAnon + "insert into public.scan_reports (payload) values ('[1, 2]');", "violates"},
      {"scan report too large", asAnon + "insert into public.scan_reports (payload) select jsonb_build_object('x', repeat('a', 1100000));", "violates"},
      {"cleanup event too large", asAnon + "insert into public.cleanup_events (payload) select jsonb_build_object('x', repeat('a', 300000));", "violates"},
      {"authenticated gets nothing", "set role authenticated;\ninsert into public.scan_reports (payload) values ('{}');", "permission denied"},
  };
  for (const auto& c : cases) {
    auto outcome = db.psql(c.sql, vars);
    if (!c.error) {
      EXPECT_EQ(outcome.exitCode, 0) << c.name << ": " << outcome.err;
    } else {
      EXPECT_NE(outcome.exitCode, 0) << c.name << " must be refused";
      EXPECT_NE(outcome.err.find(c.error), std::string::npos) << c.name << ": " << outcome.err;
    }
  }

  // Exactly the two accepted rows arrived, as posted, stamped by the server.
  auto stored = db.psql(
      "select count(*), bool_and(payload = :'scan'::jsonb), bool_and(received_at is not null) "
      "from public.scan_reports;\n"
      "select count(*), bool_and(payload = :'event'::jsonb), bool_and(id is not null) "
      "from public.cleanup_events;\n",
      vars);
  ASSERT_EQ(stored.exitCode, 0) << stored.err;
  EXPECT_EQ(stored.out, "1|t|t\n1|t|t\n");
}

}  // namespace
}  // namespace vorlan
