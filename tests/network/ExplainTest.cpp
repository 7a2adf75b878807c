// The explain client: which rows may be asked about, the request text, and what an answer
// may change.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include "network/Explain.hpp"

namespace vorlan {
namespace {

CleanupItem item(std::string path, int64_t bytes, CleanupVerdict verdict = CleanupVerdict::unknown) {
  CleanupItem row;
  row.name = path.substr(path.rfind('/') + 1);
  row.path = std::move(path);
  row.bytes = bytes;
  row.verdict = verdict;
  return row;
}

TEST(ExplainPaths, OnlyLargeUnknownPublicRowsLeaveSortedAndBounded) {
  const KnowledgeDictionary dictionary({{"Library/Caches/com.known.app", DictEntry{}}});
  struct Case {
    const char* name;
    CleanupItem row;
    bool sent;
  };
  const Case cases[] = {
      {"exactly the threshold", item("Library/Caches/com.a.app", 50'000'000), true},
      {"one byte below", item("Library/Caches/com.b.app", 49'999'999), false},
      {"in use, however large", item("Library/Caches/com.c.app", 9'000'000'000, CleanupVerdict::inUse), false},
      {"kept", item("Library/Caches/com.d.app", 9'000'000'000, CleanupVerdict::keep), false},
      {"orphan may be asked about", item("Library/Caches/com.e.app", 60'000'000, CleanupVerdict::orphan), true},
      {"plain name, 10 GB", item("Library/Application Support/Diary", 10'000'000'000), false},
      {"Korean name", item("Library/Application Support/일기", 10'000'000'000), false},
      {"one dot", item(".cache/kim.lee", 10'000'000'000), false},
      {"known to the dictionary", item("Library/Caches/com.known.app", 10'000'000'000), false},
      {"below a dictionary key", item("Library/Caches/com.known.app/sub.x.y", 10'000'000'000), false},
      {"inside a user's folder", item("/Users/kim/Library/Caches/com.f.app", 10'000'000'000), false},
  };
  for (const auto& c : cases) {
    const auto paths = Explain::paths({c.row}, dictionary);
    EXPECT_EQ(paths, c.sent ? std::vector<std::string>{c.row.path} : std::vector<std::string>{})
        << c.name;
  }

  // 41 candidates, given largest first: the limit cuts the sorted list, not the largest.
  std::vector<CleanupItem> many;
  for (int i = 0; i < 41; ++i)
    many.push_back(item(fmt::format("Library/Caches/com.v{:02}.app", i), 100'000'000 + i));
  std::reverse(many.begin(), many.end());
  many.push_back(item("Library/Caches/com.v00.app", 60'000'000));  // duplicates stay
  const auto paths = Explain::paths(many, dictionary);
  ASSERT_EQ(paths.size(), 40u);
  EXPECT_EQ(paths[0], "Library/Caches/com.v00.app");
  EXPECT_EQ(paths[1], "Library/Caches/com.v00.app");
  EXPECT_EQ(paths[39], "Library/Caches/com.v38.app");
}

TEST(ExplainRequest, RendersCompactJsonWithPlainSlashes) {
  EXPECT_EQ(Explain::renderRequest({"Library/Caches/com.a.app", ".cache/com.b.c"}),
            R"({"paths":["Library/Caches/com.a.app",".cache/com.b.c"]})");
  EXPECT_EQ(Explain::renderRequest({}), R"({"paths":[]})");
}

class RecordingExplainTransport final : public ExplainTransport {
 public:
  explicit RecordingExplainTransport(std::optional<std::string> answer) : answer_(std::move(answer)) {}
  std::optional<std::string> post(const std::string& json, const std::string& url) override {
    calls.emplace_back(json, url);
    return answer_;
  }
  std::vector<std::pair<std::string, std::string>> calls;

 private:
  std::optional<std::string> answer_;
};

TEST(ExplainFetch, PostsTheRenderedRequestToOneAddress) {
  const std::vector<std::string> paths = {"Library/Caches/com.a.app"};
  for (const char* endpoint : {"https://x.example", "https://x.example/", "https://x.example///",
                               "  https://x.example/ \t"}) {
    RecordingExplainTransport transport(R"({"entries":{}})");
    auto answer = Explain::fetch(paths, endpoint, transport);
    ASSERT_TRUE(answer) << endpoint;
    EXPECT_TRUE(answer->empty());
    ASSERT_EQ(transport.calls.size(), 1u);
    EXPECT_EQ(transport.calls[0].second, "https://x.example/explain") << endpoint;
    EXPECT_EQ(transport.calls[0].first, Explain::renderRequest(paths));
  }
}

TEST(ExplainFetch, NothingWithoutPathsEndpointOrUsableAnswer) {
  const std::vector<std::string> paths = {"Library/Caches/com.a.app"};
  struct Case {
    const char* name;
    std::vector<std::string> paths;
    std::string endpoint;
    std::optional<std::string> answer;
    size_t expectedCalls;
  };
  const Case cases[] = {
      {"no candidates", {}, "https://x.example", R"({"entries":{}})", 0},
      {"plain build: no endpoint", paths, "", R"({"entries":{}})", 0},
      {"blank endpoint", paths, "  ", R"({"entries":{}})", 0},
      {"not a web address", paths, "file:///etc", R"({"entries":{}})", 0},
      {"transport gives nothing", paths, "https://x.example", std::nullopt, 1},
      {"empty body (204)", paths, "https://x.example", "", 1},
      {"not JSON", paths, "https://x.example", "<html>", 1},
      {"no entries key", paths, "https://x.example", R"({"paths":[]})", 1},
      {"one malformed row costs all", paths, "https://x.example",
       R"({"entries":{"a":{"what":"ok"},"b":{"regenerates":"yes"}}})", 1},
  };
  for (const auto& c : cases) {
    RecordingExplainTransport transport(c.answer);
    EXPECT_FALSE(Explain::fetch(c.paths, c.endpoint, transport)) << c.name;
    EXPECT_EQ(transport.calls.size(), c.expectedCalls) << c.name;
  }
}

TEST(ExplainFetch, AnswersNeverNameWhatToDelete) {
  RecordingExplainTransport transport(R"({"entries":{
      "Library/Caches/com.a.app":{"app":"A","what":"빌드 캐시","grade":"SAFE",
                                  "deletePaths":["Library/Caches/com.a.app/x","Documents"],
                                  "risk":"다시 받습니다","regenerates":true},
      "Library/Caches/com.b.app":{}}})");
  auto answer = Explain::fetch({"Library/Caches/com.a.app"}, "https://x.example", transport);
  ASSERT_TRUE(answer);
  const std::map<std::string, DictEntry> expected = {
      {"Library/Caches/com.a.app", DictEntry{"A", "빌드 캐시", Grade::safe, {}, "다시 받습니다", true}},
      {"Library/Caches/com.b.app", DictEntry{}},
  };
  EXPECT_EQ(*answer, expected);
}

}  // namespace
}  // namespace vorlan
