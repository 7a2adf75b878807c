#include <gtest/gtest.h>

#include <algorithm>

#include "app/FlowTestSupport.hpp"
#include "flow/CleanupFlow.hpp"
#include "support/TestSupport.hpp"

namespace vorlan::app {
namespace {

using test::ScriptedHttp;
using test::waitUntil;
constexpr int64_t kNow = 1'790'000'000;
constexpr int64_t MB = 1'000'000;

// A home with a cache its installed owner rebuilds (purged at once), a folder of an app that
// is gone (held), and a cache folder the dictionary does not know. All three have public
// names the dictionary lacks, so all are explain candidates.
struct CleanupWorld {
  vorlan::test::TempDir home;
  ScriptedHttp http;
  std::set<std::string> running;
  CleanupSeams seams;

  CleanupWorld() {
    vorlan::test::allocateFile(home / "Library/Caches/com.vendor.owned/blob", 60 * MB);
    vorlan::test::writeFile(home / "Library/Caches/com.vendor.owned/note.txt", "cache");
    vorlan::test::allocateFile(home / "Library/Caches/com.gone.app/blob", 70 * MB);
    vorlan::test::writeFile(home / "Library/Caches/com.gone.app/keep.txt", "held");
    vorlan::test::allocateFile(home / ".cache/io.unknown.tool/blob", 80 * MB);
    seams.runningApps = [this] { return running; };
    seams.installedApps = [](const std::filesystem::path&) {
      return std::set<std::string>{"com.vendor.owned", "io.unknown.tool"};
    };
    seams.threads = 2;
  }
  AppEnvironment env(Environment environment = {}) {
    return test::testEnvironment(home.path(), http, kNow, std::move(environment));
  }
};

void loadAndWait(CleanupFlow& flow) {
  flow.load();
  ASSERT_TRUE(waitUntil([&] { return !flow.isLoading(); }));
}

void executeAndWait(CleanupFlow& flow, std::vector<std::string> paths) {
  flow.execute(std::move(paths));
  ASSERT_TRUE(waitUntil([&] { return !flow.isExecuting(); }));
}

const CleanupItem* row(const CleanupFlow& flow, std::string_view path) {
  const auto& items = flow.items();
  const auto it = std::find_if(items.begin(), items.end(), [&](const auto& i) { return i.path == path; });
  return it == items.end() ? nullptr : &*it;
}

TEST(CleanupFlow, RunningAppIsSkippedHeldRowsMoveAndImmediateRowsAreFreed) {
  CleanupWorld w;
  CleanupFlow flow(w.env(), w.seams);
  int64_t freed = 0;
  flow.onFreedImmediately = [&](int64_t bytes) { freed += bytes; };
  loadAndWait(flow);
  ASSERT_EQ(flow.items().size(), 3u);
  EXPECT_EQ(flow.checked(), (std::set<std::string>{".cache/io.unknown.tool", "Library/Caches/com.gone.app",
                                                   "Library/Caches/com.vendor.owned"}));
  EXPECT_GE(flow.selectedImmediateBytes(), 60 * MB);
  EXPECT_GE(flow.selectedHeldBytes(), 70 * MB);

  // The owner of the held folder starts between the plan and the delete.
  w.running = {"com.gone.app"};
  executeAndWait(flow, {flow.checked().begin(), flow.checked().end()});
  EXPECT_EQ(flow.skippedInUse(), std::vector<std::string>{"Library/Caches/com.gone.app"});
  EXPECT_EQ(flow.executeError(), std::nullopt);
  EXPECT_EQ(vorlan::test::readFile(w.home / "Library/Caches/com.gone.app/keep.txt"), "held");
  EXPECT_FALSE(std::filesystem::exists(w.home / "Library/Caches/com.vendor.owned"));
  EXPECT_GE(freed, 60 * MB);
  EXPECT_EQ(row(flow, "Library/Caches/com.vendor.owned"), nullptr);
  EXPECT_NE(row(flow, "Library/Caches/com.gone.app"), nullptr) << "a skipped row stays";
  EXPECT_EQ(flow.lastBatch(), std::nullopt) << "the only batch was purged";

  // Once the app has quit the held row moves into a batch that can be restored.
  w.running = {};
  executeAndWait(flow, {"Library/Caches/com.gone.app"});
  ASSERT_TRUE(flow.lastBatch());
  EXPECT_FALSE(std::filesystem::exists(w.home / "Library/Caches/com.gone.app"));
  EXPECT_EQ(vorlan::test::readFile(w.home / ".vorlan/quarantine" / flow.lastBatch()->id /
                                   "Library/Caches/com.gone.app/keep.txt"),
            "held");
}

TEST(CleanupFlow, FailedMoveOrPurgeLosesNothing) {
  struct Case {
    const char* name;
    bool storeIsAFile;  // the quarantine cannot be made: the move fails
    bool purgeFails;
  };
  const Case cases[] = {{"move fails", true, false}, {"purge fails", false, true}};
  for (const Case& c : cases) {
    CleanupWorld w;
    if (c.storeIsAFile) vorlan::test::writeFile(w.home / ".vorlan", "not a folder");
    if (c.purgeFails)
      w.seams.purge = [](const Quarantine&, const std::string&) { throw std::runtime_error("busy"); };
    CleanupFlow flow(w.env(), w.seams);
    int64_t freed = 0;
    flow.onFreedImmediately = [&](int64_t bytes) { freed += bytes; };
    loadAndWait(flow);
    executeAndWait(flow, {"Library/Caches/com.vendor.owned"});
    EXPECT_EQ(freed, 0) << c.name;
    if (c.storeIsAFile) {
      ASSERT_TRUE(flow.executeError()) << c.name;
      EXPECT_TRUE(flow.executeError()->startsWith(QStringLiteral("삭제하지 못했습니다: "))) << c.name;
      EXPECT_EQ(vorlan::test::readFile(w.home / "Library/Caches/com.vendor.owned/note.txt"), "cache");
      EXPECT_NE(row(flow, "Library/Caches/com.vendor.owned"), nullptr) << c.name;
    } else {
      // A purge that fails leaves the batch held, and the panel shows it.
      ASSERT_TRUE(flow.lastBatch()) << c.name;
      EXPECT_EQ(vorlan::test::readFile(w.home / ".vorlan/quarantine" / flow.lastBatch()->id /
                                       "Library/Caches/com.vendor.owned/note.txt"),
                "cache");
    }
  }
}

TEST(CleanupFlow, ExplanationsChangeWordsNeverTicksAndSurviveReloadAndDecline) {
  CleanupWorld w;
  w.http.answer = HttpResponse{200, R"({"entries":{".cache/io.unknown.tool":{"app":"Tool","what":"도구가 받은 모델 파일","grade":"SAFE","regenerates":true}}})"};
  CleanupFlow flow(w.env({{"VORLAN_EXPLAIN_ENDPOINT", "https://explain.test"}}), w.seams);
  loadAndWait(flow);
  const std::vector<std::string> unknown{".cache/io.unknown.tool", "Library/Caches/com.gone.app",
                                         "Library/Caches/com.vendor.owned"};
  ASSERT_EQ(flow.explainCandidates(), unknown);
  const CleanupItem before = *row(flow, ".cache/io.unknown.tool");
  const auto ticks = flow.checked();

  flow.explainUnknowns();
  ASSERT_TRUE(waitUntil([&] { return !flow.isExplaining(); }));
  EXPECT_EQ(flow.explainOutcome(), (CleanupFlow::ExplainOutcome{true, 1}));
  EXPECT_EQ(flow.explainRequestPreview(),
            QStringLiteral(R"({"paths":[".cache/io.unknown.tool","Library/Caches/com.gone.app","Library/Caches/com.vendor.owned"]})"));
  EXPECT_TRUE(flow.explainCandidates().empty()) << "a sent name is not offered again";
  for (int pass = 0; pass < 2; ++pass) {  // after the answer, and again after a reload
    const CleanupItem* after = row(flow, ".cache/io.unknown.tool");
    ASSERT_NE(after, nullptr);
    EXPECT_EQ(after->what, "도구가 받은 모델 파일") << pass;
    EXPECT_EQ(std::tie(after->verdict, after->checked, after->purgeImmediately),
              std::tie(before.verdict, before.checked, before.purgeImmediately)) << pass;
    EXPECT_EQ(flow.checked(), ticks) << pass;
    loadAndWait(flow);
  }

  // Declined: the offer stays away for the session, also after a reload.
  CleanupFlow declined(w.env({{"VORLAN_EXPLAIN_ENDPOINT", "https://explain.test"}}), w.seams);
  loadAndWait(declined);
  ASSERT_FALSE(declined.explainCandidates().empty());
  declined.declineExplain();
  loadAndWait(declined);
  EXPECT_TRUE(declined.explainCandidates().empty());
}

}  // namespace
}  // namespace vorlan::app
