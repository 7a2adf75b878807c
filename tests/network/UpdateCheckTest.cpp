// The update check: version arithmetic, the manifest, and that only https links come through.
#include <gtest/gtest.h>

#include "network/UpdateCheck.hpp"

namespace vorlan {
namespace {

TEST(UpdateVersions, ComponentsParseOnlyPlainDottedNumbers) {
  using V = std::vector<int64_t>;
  struct Case {
    std::string_view text;
    std::optional<V> expected;
  };
  const Case cases[] = {
      {"1.2.3", V{1, 2, 3}},
      {"0.2.4", V{0, 2, 4}},
      {"10", V{10}},
      {"007.1", V{7, 1}},
      {"+1.2", V{1, 2}},
      {"-0.3", V{0, 3}},
      {"9223372036854775807", V{INT64_MAX}},
      {"", std::nullopt},
      {"1..2", std::nullopt},
      {".5", std::nullopt},
      {"1.2.", std::nullopt},
      {"1.2-beta", std::nullopt},
      {"v1.2", std::nullopt},
      {"1.2 ", std::nullopt},
      {" 1.2", std::nullopt},
      {"-1.0", std::nullopt},
      {"+-1", std::nullopt},
      {"+", std::nullopt},
      {"1.0x", std::nullopt},
      {"9223372036854775808", std::nullopt},
      {"1.２", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(UpdateCheck::components(c.text), c.expected) << c.text;
}

TEST(UpdateVersions, NewerComparesNumbersPaddedWithZeros) {
  struct Case {
    std::string_view candidate, current;
    bool newer;
  };
  const Case cases[] = {
      {"1.2.10", "1.2.9", true},   {"1.2.9", "1.2.10", false}, {"1.3", "1.2.99", true},
      {"1.2.0", "1.2", false},     {"1.2", "1.2.0", false},    {"1.2.1", "1.2", true},
      {"1.0", "0.2.4", true},      {"0.2.4", "0.2.4", false},  {"0.2.3", "0.2.4", false},
      {"0.10", "0.9", true},       {"1.0-beta", "0.2.4", false}, {"2.0", "0.2.4-dev", false},
      {"", "0.2.4", false},        {"0.2.4", "", false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(UpdateCheck::isNewer(c.candidate, c.current), c.newer)
        << c.candidate << " vs " << c.current;
}

class FakeGet final : public UpdateTransport {
 public:
  explicit FakeGet(std::optional<std::string> body) : body_(std::move(body)) {}
  std::optional<std::string> get(const std::string& url) override {
    urls.push_back(url);
    return body_;
  }
  std::vector<std::string> urls;

 private:
  std::optional<std::string> body_;
};

TEST(UpdateCheckTest, OnlyANewerVersionWithAnHttpsLinkIsOffered) {
  struct Case {
    const char* name;
    std::string current;
    std::optional<std::string> body;
    std::optional<UpdateInfo> expected;
  };
  const UpdateInfo newer{"1.0", "https://vorlan.example/download"};
  const Case cases[] = {
      {"newer", "0.2.4", R"({"version":"1.0","url":"https://vorlan.example/download"})", newer},
      {"extra keys ignored", "0.2.4",
       R"({"version":"1.0","url":"https://vorlan.example/download","notes":"x"})", newer},
      {"same version", "0.2.4", R"({"version":"0.2.4","url":"https://v.example"})", std::nullopt},
      {"older version", "0.2.4", R"({"version":"0.2.3","url":"https://v.example"})", std::nullopt},
      {"http link refused", "0.2.4", R"({"version":"9.0","url":"http://v.example/x"})", std::nullopt},
      {"upper-case scheme refused", "0.2.4", R"({"version":"9.0","url":"HTTPS://v.example/x"})",
       std::nullopt},
      {"no scheme", "0.2.4", R"({"version":"9.0","url":"v.example/x"})", std::nullopt},
      {"javascript link", "0.2.4", R"j({"version":"9.0","url":"javascript:alert(1)"})j", std::nullopt},
      {"https without host", "0.2.4", R"({"version":"9.0","url":"https://"})", std::nullopt},
      {"version as a number", "0.2.4", R"({"version":1.0,"url":"https://v.example"})", std::nullopt},
      {"missing url", "0.2.4", R"({"version":"9.0"})", std::nullopt},
      {"not an object", "0.2.4", R"(["9.0","https://v.example"])", std::nullopt},
      {"not JSON", "0.2.4", "<html>", std::nullopt},
      {"no answer", "0.2.4", std::nullopt, std::nullopt},
      {"running version with a suffix", "0.2.4-dev",
       R"({"version":"9.0","url":"https://v.example"})", std::nullopt},
  };
  for (const auto& c : cases) {
    FakeGet transport(c.body);
    EXPECT_EQ(UpdateCheck::check(c.current, "https://site.example", transport), c.expected) << c.name;
    EXPECT_EQ(transport.urls, std::vector<std::string>{"https://site.example/version.json"}) << c.name;
  }
}

TEST(UpdateCheckTest, EndpointFormsAndTheSwitchOff) {
  struct Case {
    std::string endpoint;
    std::optional<std::string> requested;
  };
  const Case cases[] = {
      {"https://site.example", "https://site.example/version.json"},
      {"https://site.example/", "https://site.example/version.json"},
      {"https://site.example///", "https://site.example/version.json"},
      {" https://site.example/ ", "https://site.example/version.json"},
      {"https://site.example/vorlan/", "https://site.example/vorlan/version.json"},
      {"", std::nullopt},
      {"   ", std::nullopt},
      {"///", std::nullopt},
      {"site.example", std::nullopt},
  };
  for (const auto& c : cases) {
    FakeGet transport(R"({"version":"9.0","url":"https://v.example"})");
    const auto info = UpdateCheck::check("0.2.4", c.endpoint, transport);
    if (c.requested) {
      EXPECT_EQ(transport.urls, std::vector<std::string>{*c.requested}) << c.endpoint;
      EXPECT_TRUE(info) << c.endpoint;
    } else {
      EXPECT_TRUE(transport.urls.empty()) << c.endpoint;
      EXPECT_FALSE(info) << c.endpoint;
    }
  }
}

}  // namespace
}  // namespace vorlan
