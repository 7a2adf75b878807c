#include <gtest/gtest.h>

#include "scan/ScanRecords.hpp"

namespace vorlan {
namespace {

TEST(Grade, RawValuesAreExactUpperCase) {
  struct Case { const char* raw; std::optional<Grade> grade; };
  const Case cases[] = {
      {"SAFE", Grade::safe}, {"REVIEW", Grade::review}, {"NEVER", Grade::never},
      {"UNKNOWN", Grade::unknown}, {"safe", std::nullopt}, {"", std::nullopt},
      {"SAFE ", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(gradeFromRaw(c.raw), c.grade) << c.raw;
}

TEST(Finding, AbsentSizeDiffersFromZero) {
  Finding a{"x", std::nullopt, "c", Grade::safe, "n", ""};
  Finding b = a;
  b.sizeBytes = 0;
  EXPECT_NE(a, b);
}

}  // namespace
}  // namespace vorlan
