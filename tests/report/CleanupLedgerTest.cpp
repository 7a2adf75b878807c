// The three-line account of a cleanup: sums, the earliest expiry, padding and the local date.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <optional>

#include "report/CleanupLedger.hpp"

namespace vorlan {
namespace {

QuarantineBatch batch(std::string id, int64_t expires, std::vector<int64_t> sizes) {
  QuarantineBatch b{std::move(id), expires - 604800, expires, {}, {}};
  for (auto bytes : sizes) b.items.push_back({"p", "p", bytes});
  return b;
}

// Sets the process's time zone for one test and puts the old one back.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) {
    if (const char* old = std::getenv("TZ")) old_ = old;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~TimeZone() {
    if (old_)
      ::setenv("TZ", old_->c_str(), 1);
    else
      ::unsetenv("TZ");
    ::tzset();
  }

 private:
  std::optional<std::string> old_;
};

constexpr int64_t kEvening = 1774123200;  // 2026-03-21 20:00 UTC, already the 22nd in Seoul

TEST(CleanupLedger, SumsEveryItemAndTakesTheEarliestExpiry) {
  const std::vector<QuarantineBatch> batches{batch("b", kEvening + 50, {100, 200}), batch("a", kEvening, {}),
                                             batch("c", kEvening + 10, {3})};
  EXPECT_EQ(cleanupLedger(batches, 7), (CleanupLedger{303, 7, kEvening}));
  EXPECT_EQ(cleanupLedger({}, 0), (CleanupLedger{0, 0, std::nullopt}));
}

TEST(CleanupLedger, RendersAlignedAmountsAndTheLocalDate) {
  TimeZone zone("UTC0");
  struct Case {
    std::string name;
    CleanupLedger ledger;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"nothing at all", {0, 0, std::nullopt}, {}},
      {"a batch of empty items, nothing freed", {0, 0, kEvening}, {}},
      {"freed without batches", {0, 1, std::nullopt}, {"치운 파일    0.0GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
      {"both with a date",
       {1'234'567'890, 20'000'000'000, kEvening},
       {"치운 파일    1.2GB   되돌릴 수 있어요", "비운 공간   20.0GB", "보관 기한 2026-03-21"}},
      {"a long amount is not cut", {123'456'789'012'345, 0, std::nullopt},
       {"치운 파일 123456.8GB   되돌릴 수 있어요", "비운 공간    0.0GB"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(renderCleanupLedger(c.ledger), c.lines);
  }
}

TEST(CleanupLedger, DateFollowsTheMachinesTimeZone) {
  TimeZone zone("KST-9");
  EXPECT_EQ(renderCleanupLedger({1, 0, kEvening}).back(), "보관 기한 2026-03-22");
}

}  // namespace
}  // namespace vorlan
