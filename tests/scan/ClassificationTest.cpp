#include <gtest/gtest.h>

#include "scan/Classification.hpp"

namespace vorlan {
namespace {

bool alwaysInstalled(const std::string&) { return true; }

TEST(IsAtOrUnder, RelatesOnlyAtSlashBorders) {
  struct Case { const char* path; const char* base; bool expected; };
  const Case cases[] = {
      {"Library/Caches", "Library/Caches", true},
      {"Library/Caches/foo", "Library/Caches", true},
      {"Library/Caches/foo/bar", "Library/Caches", true},
      {"Library/Cachesfoo", "Library/Caches", false},
      {"Library", "Library/Caches", false},
      {"Library/Cache", "Library/Caches", false},
      {"/abs/x", "/abs", true},
      {"abs/x", "/abs", false},
  };
  for (const auto& c : cases) EXPECT_EQ(isAtOrUnder(c.path, c.base), c.expected) << c.path << " | " << c.base;
}

TEST(Classify, LongestFittingRuleWins) {
  struct Case { const char* path; const char* category; Grade grade; const char* note; };
  const Case cases[] = {
      {"Library/Caches", "캐시", Grade::safe, "앱 캐시 — 재생성됨"},
      {"Library/Caches/foo", "캐시", Grade::safe, "앱 캐시 — 재생성됨"},
      {"Library/Containers/com.docker.docker/Data", "VM·컨테이너", Grade::review,
       "Docker Desktop 디스크 이미지 — 내부에 이미지·볼륨·빌드캐시가 섞여 있음"},
      {"Library/Containers/com.docker.docker/Data/vms", "VM·컨테이너", Grade::review,
       "Docker Desktop 디스크 이미지 — 내부에 이미지·볼륨·빌드캐시가 섞여 있음"},
      {"Library/Containers/com.other", "앱 데이터", Grade::review, "앱별 샌드박스 컨테이너"},
      {".cache/huggingface/hub", "AI 모델", Grade::review, "HuggingFace 모델 캐시"},
      {".cache/pip", "캐시", Grade::safe, "CLI 도구 캐시 — 재생성됨"},
      {"Library/Application Support/MobileSync/Backup/x", "iOS 백업", Grade::never,
       "iPhone/iPad 로컬 백업 — 삭제 시 복원 불가"},
      {"Library/Application Support/MobileSync", "앱 데이터", Grade::review,
       "앱별 데이터·업데이트 캐시 혼재"},
      {"/System/Library/AssetsV2/x", "Apple 자산", Grade::never,
       "Apple 관리 다운로드 자산 (AI 모델·사전·음성 등) — 직접 삭제 금지"},
      {".antigravity-ide", "AI 도구", Grade::review, "Antigravity IDE 데이터"},
      {"Library/Cachesfoo", "미분류", Grade::unknown, "규칙에 없는 항목 — 직접 확인 필요"},
      {"System/Library/AssetsV2", "미분류", Grade::unknown, "규칙에 없는 항목 — 직접 확인 필요"},
      {"Projects", "미분류", Grade::unknown, "규칙에 없는 항목 — 직접 확인 필요"},
      {"", "미분류", Grade::unknown, "규칙에 없는 항목 — 직접 확인 필요"},
  };
  for (const auto& c : cases) {
    Finding f = classify(c.path, 42, alwaysInstalled);
    EXPECT_EQ(f.path, c.path);
    EXPECT_EQ(f.sizeBytes, 42);
    EXPECT_EQ(f.category, c.category) << c.path;
    EXPECT_EQ(f.grade, c.grade) << c.path;
    EXPECT_EQ(f.note, c.note) << c.path;
  }
  EXPECT_EQ(classify("Projects", std::nullopt, alwaysInstalled).hint, "");
  EXPECT_EQ(classify("Projects", std::nullopt, alwaysInstalled).sizeBytes, std::nullopt);
}

TEST(Classify, OrphanedToolTurnsItsDataSafe) {
  std::vector<std::string> asked;
  auto missing = [&](const std::string& name) { asked.push_back(name); return false; };
  Finding f = classify(".ollama/models", 7, missing);
  EXPECT_EQ(f, (Finding{".ollama/models", 7, "AI 모델", Grade::safe,
                        "주인 없는 캐시 데이터 — 'ollama' 도구가 삭제되어 더는 쓰이지 않음",
                        "ollama list 로 불용 모델 삭제"}));
  EXPECT_EQ(asked, (std::vector<std::string>{"ollama"}));

  auto installed = [&](const std::string& name) { asked.push_back(name); return true; };
  EXPECT_EQ(classify(".ollama", 7, installed),
            (Finding{".ollama", 7, "AI 모델", Grade::review, "Ollama 모델 저장소",
                     "ollama list 로 불용 모델 삭제"}));

  asked.clear();
  classify("Projects", 1, missing);
  classify("Library/Caches", 1, missing);
  classify(".ollamax", 1, missing);
  EXPECT_TRUE(asked.empty()) << "asked only for a rule that names a tool";
  EXPECT_EQ(classify(".ollama", 1, HasBinary{}).grade, Grade::review);
}

Finding sized(std::string path, std::optional<int64_t> size, std::string note = "n") {
  return Finding{std::move(path), size, "c", Grade::review, std::move(note), "h"};
}

TEST(SubtractDescendants, TakesMeasuredChildrenOutOfParents) {
  const int64_t gb = 1'000'000'000;
  const std::string suffix = " (측정된 하위 항목 제외)";
  struct Case {
    const char* name;
    std::vector<Finding> input;
    std::vector<Finding> expected;
  };
  const Case cases[] = {
      {"child out of parent",
       {sized("a", 10 * gb), sized("a/b", 3 * gb), sized("c", 1)},
       {sized("a", 7 * gb, "n" + suffix), sized("a/b", 3 * gb), sized("c", 1)}},
      {"never below zero",
       {sized("a", 1 * gb), sized("a/x", 3 * gb), sized("a/y", 3 * gb)},
       {sized("a", 0, "n" + suffix), sized("a/x", 3 * gb), sized("a/y", 3 * gb)}},
      {"parent without a size stays",
       {sized("a", std::nullopt), sized("a/b", 5)},
       {sized("a", std::nullopt), sized("a/b", 5)}},
      {"zero or absent children change nothing",
       {sized("a", 9), sized("a/b", 0), sized("a/c", std::nullopt)},
       {sized("a", 9), sized("a/b", 0), sized("a/c", std::nullopt)}},
      {"prefix without slash is no child",
       {sized("Library/Caches", 9), sized("Library/Cachesfoo", 4)},
       {sized("Library/Caches", 9), sized("Library/Cachesfoo", 4)}},
      {"grandchildren count from input sizes, child first in order",
       {sized("a/b/c", 1), sized("a/b", 4), sized("a", 10)},
       {sized("a/b/c", 1), sized("a/b", 3, "n" + suffix), sized("a", 5, "n" + suffix)}},
      {"same path twice is not its own child",
       {sized("a", 5), sized("a", 5)},
       {sized("a", 5), sized("a", 5)}},
      {"empty", {}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(subtractDescendants(c.input), c.expected) << c.name;
}

TEST(OwnData, OnlyTheFolderAndItsContents) {
  EXPECT_EQ(ownDataDir, ".vorlan");
  EXPECT_TRUE(isOwnData(".vorlan"));
  EXPECT_TRUE(isOwnData(".vorlan/quarantine/x"));
  EXPECT_FALSE(isOwnData(".vorlanx"));
  EXPECT_FALSE(isOwnData("Library/.vorlan"));
  EXPECT_FALSE(isOwnData(""));
}

TEST(DisplayPath, TildeOnlyBeforeHomeRelativePaths) {
  EXPECT_EQ(displayPath("Library/Caches"), "~/Library/Caches");
  EXPECT_EQ(displayPath("/System/Library/AssetsV2"), "/System/Library/AssetsV2");
}

}  // namespace
}  // namespace vorlan
