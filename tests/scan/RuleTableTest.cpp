#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "scan/Classification.hpp"
#include "scan/RuleTable.hpp"

namespace vorlan {
namespace {

TEST(RuleTable, CountsByGradeHintAndOwner) {
  const auto& table = rules();
  ASSERT_EQ(table.size(), 90u);
  auto count = [&](auto pred) { return std::count_if(table.begin(), table.end(), pred); };
  EXPECT_EQ(count([](const Rule& r) { return r.grade == Grade::review; }), 58);
  EXPECT_EQ(count([](const Rule& r) { return r.grade == Grade::never; }), 17);
  EXPECT_EQ(count([](const Rule& r) { return r.grade == Grade::safe; }), 15);
  EXPECT_EQ(count([](const Rule& r) { return r.grade == Grade::unknown; }), 0);
  EXPECT_EQ(count([](const Rule& r) { return r.hint.empty(); }), 26);
  EXPECT_EQ(count([](const Rule& r) { return r.orphanBinary.has_value(); }), 1);
}

TEST(RuleTable, SubpathsAreDistinctAndWellFormed) {
  std::set<std::string> seen;
  std::vector<int> absoluteRows;
  for (size_t i = 0; i < rules().size(); ++i) {
    const Rule& r = rules()[i];
    EXPECT_TRUE(seen.insert(r.subpath).second) << r.subpath;
    EXPECT_FALSE(r.subpath.empty());
    EXPECT_FALSE(r.subpath.ends_with('/')) << r.subpath;
    EXPECT_FALSE(r.subpath.starts_with("~")) << r.subpath;
    EXPECT_FALSE(r.category.empty());
    EXPECT_FALSE(r.note.empty());
    if (r.subpath.starts_with('/')) absoluteRows.push_back(static_cast<int>(i) + 1);
  }
  EXPECT_EQ(absoluteRows, (std::vector<int>{33, 34, 35}));
}

// The pairs whose child figure is taken out of the parent's; row numbers count from 1.
TEST(RuleTable, AncestorPairsAreExactlyTheKnownTwelve) {
  std::set<std::pair<int, int>> pairs;
  const auto& table = rules();
  for (size_t p = 0; p < table.size(); ++p)
    for (size_t c = 0; c < table.size(); ++c)
      if (p != c && isAtOrUnder(table[c].subpath, table[p].subpath))
        pairs.insert({static_cast<int>(p) + 1, static_cast<int>(c) + 1});
  const std::set<std::pair<int, int>> expected{{9, 6},   {14, 10}, {15, 11}, {16, 13},
                                               {29, 1},  {29, 4},  {30, 12}, {30, 18},
                                               {31, 84}, {46, 32}, {65, 63}, {66, 64}};
  EXPECT_EQ(pairs, expected);
}

TEST(RuleTable, SampledRowsCarryTheirExactTexts) {
  const auto& t = rules();
  EXPECT_EQ(t[0], (Rule{"Library/Containers/com.docker.docker", "VM·컨테이너", Grade::review,
                        "Docker Desktop 디스크 이미지 — 내부에 이미지·볼륨·빌드캐시가 섞여 있음",
                        "docker system df 로 내역 확인 후 docker builder prune / image prune "
                        "(볼륨은 팀 확인 전 금지)",
                        std::nullopt}));
  EXPECT_EQ(t[4], (Rule{".ollama", "AI 모델", Grade::review, "Ollama 모델 저장소",
                        "ollama list 로 불용 모델 삭제", "ollama"}));
  EXPECT_EQ(t[25].hint, "iCloud 설정의 'Mac 저장 공간 최적화'로 로컬 사본을 줄일 수 있음");
  EXPECT_EQ(t[33].subpath, "/Library/Application Support/com.apple.idleassetsd/Customer");
  EXPECT_EQ(t[83], (Rule{"Library/Application Support/MobileSync/Backup", "iOS 백업", Grade::never,
                         "iPhone/iPad 로컬 백업 — 삭제 시 복원 불가", "Finder 백업 관리에서만 정리",
                         std::nullopt}));
  EXPECT_EQ(t[89], (Rule{"Music", "사용자 파일", Grade::never, "사용자 파일", "", std::nullopt}));
}

}  // namespace
}  // namespace vorlan
