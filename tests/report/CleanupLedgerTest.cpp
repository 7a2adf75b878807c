// The three-line account of a cleanup: sums, the earliest expiry, padding and the local date.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

#include "report/CleanupLedger.hpp"
#include "report/QuarantineNotices.hpp"

namespace vorlan {
namespace {

QuarantineBatch batch(int64_t expires, std::vector<int64_t> sizes) {
  QuarantineBatch b{"id", expires - 604800, expires, {}, {}};
  for (auto bytes : sizes) b.items.push_back({"p", "p", bytes});
  return b;
}

constexpr int64_t kEvening = 1774123200;  // 2026-03-21 20:00 UTC, already the 22nd in Seoul

TEST(CleanupLedger, SumsEveryItemAndTakesTheEarliestExpiry) {
  // An empty batch still holds the earliest date.
  EXPECT_EQ(cleanupLedger({batch(kEvening + 50, {100, 200}), batch(kEvening, {}), batch(kEvening + 10, {3})}, 7),
            (CleanupLedger{303, 7, kEvening}));
  EXPECT_EQ(cleanupLedger({}, 0), (CleanupLedger{0, 0, std::nullopt}));
}

TEST(CleanupLedger, RendersAlignedAmountsAndTheLocalDate) {
  const std::string saved = std::getenv("TZ") ? std::getenv("TZ") : "";
  ::setenv("TZ", "KST-9", 1);
  ::tzset();
  struct Case { const char* name; CleanupLedger ledger; std::vector<std::string> lines; };
  const Case cases[] = {
      {"nothing at all", {0, 0, std::nullopt}, {}},
      {"a batch of empty items, nothing freed", {0, 0, kEvening}, {}},
      {"freed without batches", {0, 1, std::nullopt},
       {"치운 파일    0.0GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
      {"both with a date", {1'234'567'890, 20'000'000'000, kEvening},
       {"치운 파일    1.2GB   되돌릴 수 있어요", "비운 공간   20.0GB", "보관 기한 2026-03-22"}},
      {"a long amount is not cut", {123'456'789'012'345, 0, std::nullopt},
       {"치운 파일 123456.8GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
  };
  for (const auto& c : cases) EXPECT_EQ(renderCleanupLedger(c.ledger), c.lines) << c.name;
  saved.empty() ? ::unsetenv("TZ") : ::setenv("TZ", saved.c_str(), 1);
  ::tzset();
}

// The measured change of the disk wins unless it is under a tenth of what the manifests
// promise, or a figure is missing; a disk that filled up meanwhile counts as no change.
TEST(CleanupLedger, FreedByEmptying) {
  const int64_t G = 1'000'000'000;
  struct Case { std::optional<int64_t> before, after; int64_t freed; };
  const Case cases[] = {
      {100 * G, 99 * G + G / 2, 20 * G},  // 0.5 GB measured: lagging, the promise counts
      {100 * G, 98 * G, 2 * G},           // exactly a tenth: measured
      {100 * G, 101 * G, 20 * G},         // the disk filled up
      {std::nullopt, 98 * G, 20 * G},
      {100 * G, std::nullopt, 20 * G},
  };
  for (const auto& c : cases) EXPECT_EQ(freedByEmptying(20 * G, c.before, c.after), c.freed);
  EXPECT_EQ(QuarantineNotices::partialRestore(3, 2),
            "5개 중 3개를 되돌렸습니다 — 나머지는 같은 위치에 새 파일이 생겨 보관함에 남아 있습니다");
}

}  // namespace
}  // namespace vorlan
