#include <gtest/gtest.h>

#include <map>
#include <set>

#include "scan/RuleTable.hpp"

namespace vorlan {
namespace {

TEST(RuleTable, NinetyDistinctRowsWithTheirGradeCounts) {
  std::map<Grade, int> grades;
  std::set<std::string> subpaths;  // a row twice would be measured and counted twice
  std::vector<size_t> absoluteRows;
  int withOwner = 0;
  for (size_t i = 0; i < rules().size(); ++i) {
    const Rule& r = rules()[i];
    ++grades[r.grade];
    subpaths.insert(r.subpath);
    if (r.subpath.starts_with('/')) absoluteRows.push_back(i + 1);
    EXPECT_FALSE(r.subpath.empty() || r.subpath.ends_with('/') || r.subpath.starts_with('~')) << r.subpath;
    withOwner += r.orphanBinary.has_value();
  }
  EXPECT_EQ(rules().size(), 90u);
  EXPECT_EQ(subpaths.size(), 90u);
  EXPECT_EQ(grades, (std::map<Grade, int>{{Grade::safe, 15}, {Grade::review, 58}, {Grade::never, 17}}));
  EXPECT_EQ(absoluteRows, (std::vector<size_t>{33, 34, 35}));
  EXPECT_EQ(withOwner, 1);
}

}  // namespace
}  // namespace vorlan
