// Faults found by attacking the quarantine on purpose: each case is one way a file was lost,
// or touched where it should not have been, before the fix it guards.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>

#include "cleanup/CleanupExecution.hpp"
#include "quarantine/Quarantine.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::readFile;
using test::writeFile;

constexpr int64_t kNow = 1'773'479'702;

struct Store {
  test::TempDir dir;
  fs::path home = dir / "home";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
  Store() { fs::create_directories(home); }
  fs::path batchFolder(const QuarantineBatch& batch) const { return quarantine.root / batch.id; }
};

bool contains(const std::vector<std::string>& list, const std::string& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

// An item told to go back into the quarantine itself would be deleted with its batch while
// restore reported it as restored.
TEST(QuarantineRegression, RestoreNeverPutsAnItemIntoTheStore) {
  struct Case {
    const char* name;
    std::string (*original)(const std::string& id);
  };
  const Case cases[] = {
      {"into its own batch", [](const std::string& id) { return ".vorlan/quarantine/" + id + "/back"; }},
      {"into another batch", [](const std::string&) { return std::string(".vorlan/quarantine/other/back"); }},
      {"through a link to its batch", [](const std::string&) { return std::string("link/back"); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Store s;
    writeFile(s.home / "Library/Caches/app/data", "precious");
    const QuarantineBatch batch = s.quarantine.move({"Library/Caches/app"}, kNow);
    ASSERT_EQ(batch.items.size(), 1u);
    fs::create_directories(s.quarantine.root / "other");
    fs::create_directory_symlink(s.batchFolder(batch), s.home / "link");
    nlohmann::json manifest = nlohmann::json::parse(readFile(s.batchFolder(batch) / "manifest.json"));
    const std::string original = c.original(batch.id);
    manifest["items"][0]["original"] = original;
    writeFile(s.batchFolder(batch) / "manifest.json", manifest.dump());

    const RestoreResult result = s.quarantine.restore(batch.id);
    EXPECT_EQ(result.failed, std::vector<std::string>{original});
    EXPECT_EQ(readFile(s.batchFolder(batch) / "Library/Caches/app/data"), "precious");
    EXPECT_FALSE(fs::exists(s.quarantine.root / "other/back"));
  }
}

// A tree deeper than the open-file limit (256 by default on the Mac) could not be purged, and a
// careless order (on tmpfs the manifest is listed first) left a folder without a manifest.
TEST(QuarantineRegression, PurgeOfATreeDeeperThanTheOpenFileLimit) {
  std::optional<test::TempDir> fallback;
  fs::path scratch;
  if (fs::is_directory("/dev/shm") && ::access("/dev/shm", W_OK) == 0) {
    scratch = fs::path("/dev/shm") / ("vorlan-regression-" + std::to_string(::getpid()));
    fs::create_directories(scratch);
  } else {
    fallback.emplace();
    scratch = fallback->path();
  }
  struct Cleanup {
    fs::path path;
    bool owned;
    ~Cleanup() {
      std::error_code ec;
      if (owned) fs::remove_all(path, ec);
    }
  } cleanup{scratch, !fallback};

  const fs::path home = scratch / "home";
  fs::path deep = home / "Library/Caches/deep";
  for (int level = 0; level < 100; ++level) deep /= "d";
  writeFile(deep / "leaf", "x");
  Quarantine quarantine(Quarantine::defaultRoot(home), home);
  const QuarantineBatch batch = quarantine.move({"Library/Caches/deep"}, kNow);
  ASSERT_EQ(batch.items.size(), 1u);

  pid_t pid = ::fork();
  if (pid == 0) {
    const rlimit few{32, 32};
    ::setrlimit(RLIMIT_NOFILE, &few);
    try {
      quarantine.purge(batch.id);
    } catch (...) {
      ::_exit(1);
    }
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(pid, &status, 0);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the purge failed";
  EXPECT_FALSE(fs::exists(quarantine.root / batch.id));
}

// A copy across file systems took the entry out of a folder that a rename could not have
// taken it from, opening that folder (the user's, not part of the move) up for writing.
TEST(QuarantineRegression, CopyLeavesAReadOnlyFolderAsItIs) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root ignores permissions";
  Store s;
  writeFile(s.home / "Docs/item/f", "x");
  fs::permissions(s.home / "Docs", fs::perms::owner_read | fs::perms::owner_exec);
  auto faults = std::make_shared<FileFaults>();
  faults->rename = [](std::string_view, std::string_view) { return EXDEV; };
  const Quarantine quarantine(s.quarantine.root, s.home, faults);

  const QuarantineBatch batch = quarantine.move({"Docs/item"}, kNow);
  EXPECT_EQ(batch.failures, std::vector<std::string>{"Docs/item"});
  EXPECT_EQ(fs::status(s.home / "Docs").permissions(), fs::perms::owner_read | fs::perms::owner_exec);
  EXPECT_EQ(readFile(s.home / "Docs/item/f"), "x");
  fs::permissions(s.home / "Docs", fs::perms::owner_all);
}

// With ~/.vorlan a link to elsewhere, the user's files would leave the home folder.
TEST(QuarantineRegression, CleanupMovesNothingWhenTheQuarantineLiesOutsideHome) {
  Store s;
  test::TempDir elsewhere;
  fs::create_directory_symlink(elsewhere.path(), s.home / ".vorlan");
  writeFile(s.home / "Library/Caches/app/data", "x");

  const CleanupOutcome outcome = executeCleanup({"Library/Caches/app"}, {}, {"Library/Caches/app"}, {},
                                                s.quarantine, kNow);
  ASSERT_TRUE(outcome.executeError.has_value());
  EXPECT_TRUE(outcome.executeError->starts_with("삭제하지 못했습니다: "));
  EXPECT_TRUE(outcome.processed.empty());
  EXPECT_EQ(readFile(s.home / "Library/Caches/app/data"), "x");
  EXPECT_TRUE(fs::is_empty(elsewhere.path()));
}

// On a file system that ignores case (the Mac's default) a moved "Manifest.json" is the
// manifest's own entry, and writing the manifest replaced the user's file.
TEST(QuarantineRegression, NamesOfTheStoreInAnotherCaseStayHome) {
  Store s;
  writeFile(s.home / "Manifest.json", "the user's");
  writeFile(s.home / ".VORLAN-JOURNAL", "the user's too");
  const QuarantineBatch batch = s.quarantine.move({"Manifest.json", ".VORLAN-JOURNAL"}, kNow);
  EXPECT_TRUE(batch.items.empty());
  EXPECT_TRUE(contains(batch.failures, "Manifest.json"));
  EXPECT_TRUE(contains(batch.failures, ".VORLAN-JOURNAL"));
  EXPECT_EQ(readFile(s.home / "Manifest.json"), "the user's");
  EXPECT_EQ(readFile(s.home / ".VORLAN-JOURNAL"), "the user's too");
}

}  // namespace
}  // namespace vorlan
