// The two clients that ask a remote service: explain (which rows may be asked about, the request
// text, what an answer may change) and the update check (versions, only https links).
#include <gtest/gtest.h>

#include "network/Explain.hpp"
#include "network/UpdateCheck.hpp"

namespace vorlan {
namespace {

CleanupItem item(std::string path, int64_t bytes, CleanupVerdict verdict = CleanupVerdict::unknown) {
  CleanupItem row;
  std::tie(row.path, row.bytes, row.verdict) = std::tie(path, bytes, verdict);
  return row;
}

TEST(Explain, OnlyLargeUnknownPublicRowsLeaveSortedAndBounded) {
  const KnowledgeDictionary dictionary({{"Library/Caches/com.known.app", DictEntry{}}});
  const int64_t big = 9'000'000'000;
  for (const auto& [row, sent] : std::vector<std::pair<CleanupItem, bool>>{
           {item("Library/Caches/com.a.app", 50'000'000), true}, {item("Library/Caches/com.b.app", 49'999'999), false},
           {item("Library/Caches/com.c.app", big, CleanupVerdict::inUse), false},
           {item("Library/Application Support/일기", big), false}, {item(".cache/kim.lee", big), false},
           {item("Library/Caches/com.known.app", big), false}, {item("/Users/kim/Library/Caches/com.f.app", big), false}})
    EXPECT_EQ(Explain::paths({row}, dictionary), sent ? std::vector{row.path} : std::vector<std::string>{}) << row.path;

  std::vector<CleanupItem> many;  // given largest first: the limit cuts the sorted list, not the largest
  for (int i = 50; i >= 10; --i) many.push_back(item("Library/Caches/com.v" + std::to_string(i) + ".app", big + i));
  const auto paths = Explain::paths(many, dictionary);
  ASSERT_EQ(paths.size(), 40u);
  EXPECT_EQ(paths.front() + " " + paths.back(), "Library/Caches/com.v10.app Library/Caches/com.v49.app");
  EXPECT_EQ(Explain::renderRequest({"Library/Caches/com.a.app", ".cache/com.b.c"}),
            R"({"paths":["Library/Caches/com.a.app",".cache/com.b.c"]})");
}

struct FakeService final : ExplainTransport, UpdateTransport {
  explicit FakeService(std::optional<std::string> text) : answer(std::move(text)) {}
  std::optional<std::string> post(const std::string&, const std::string& url) override { return get(url); }
  std::optional<std::string> get(const std::string& url) override {
    urls.push_back(url);
    return answer;
  }
  std::optional<std::string> answer;
  std::vector<std::string> urls;
};

TEST(Explain, AnswersNeverNameWhatToDeleteAndNoPathsAskNobody) {
  FakeService good(R"({"entries":{"Library/Caches/com.a.app":{"app":"A","what":"빌드 캐시","grade":"SAFE",
      "deletePaths":["Documents"],"risk":"다시 받습니다","regenerates":true}}})");
  EXPECT_EQ(Explain::fetch({"Library/Caches/com.a.app"}, "https://x.example/", good),
            (std::map<std::string, DictEntry>{
                {"Library/Caches/com.a.app", DictEntry{"A", "빌드 캐시", Grade::safe, {}, "다시 받습니다", true}}}));
  EXPECT_EQ(good.urls, std::vector<std::string>{"https://x.example/explain"});
  EXPECT_FALSE(Explain::fetch({}, "https://x.example", good));  // nothing to ask: no request
  EXPECT_EQ(good.urls.size(), 1u);
}

TEST(UpdateCheck, NewerComparesNumbersPaddedWithZeros) {
  for (const auto& [candidate, current, newer] : std::vector<std::tuple<std::string_view, std::string_view, bool>>{
           {"1.2.10", "1.2.9", true}, {"1.2.9", "1.2.10", false}, {"1.3", "1.2.99", true}, {"1.2.0", "1.2", false},
           {"1.2", "1.2.0", false}, {"1.2.1", "1.2", true}, {"0.10", "0.9", true}, {"0.2.4", "0.2.4", false},
           {"007.1", "7.0", true}, {"1.0-beta", "0.2.4", false}, {"2.0", "0.2.4-dev", false}, {"v9", "0.2.4", false},
           {"", "0.2.4", false}, {"1..2", "0.2.4", false}, {"-1.0", "0.2.4", false}, {"9223372036854775808", "1", false}})
    EXPECT_EQ(UpdateCheck::isNewer(candidate, current), newer) << candidate << " vs " << current;
}

TEST(UpdateCheck, OnlyANewerVersionWithAnHttpsLinkIsOfferedFromTheOneManifest) {
  const std::string site = "https://site.example", manifest = site + "/version.json",
                    newer = R"({"version":"1.0","url":"https://v.example/get"})";
  for (const auto& [endpoint, body, requested] : std::vector<std::tuple<std::string, std::optional<std::string>, std::string>>{
           {site, newer, manifest}, {site + "///", newer, manifest},
           {" https://site.example/v/ ", newer, "https://site.example/v/version.json"},
           {site, R"({"version":"0.2.4","url":"https://v.example"})", manifest},
           {site, R"({"version":"9.0","url":"http://v.example/x"})", manifest},
           {site, R"({"version":9.0,"url":"https://v.example"})", manifest}, {site, "<html>", manifest},
           {"  ", newer, ""}}) {  // empty `requested`: no request at all
    FakeService service(body);
    const bool offered = body == newer && !requested.empty();  // only the good manifest, when asked for
    EXPECT_EQ(UpdateCheck::check("0.2.4", endpoint, service),
              offered ? std::optional(UpdateInfo{"1.0", "https://v.example/get"}) : std::nullopt)
        << endpoint << " " << body.value_or("-");
    EXPECT_EQ(service.urls, requested.empty() ? std::vector<std::string>{} : std::vector{requested}) << endpoint;
  }
}

}  // namespace
}  // namespace vorlan
