// Configuration, the install id file and the guarantee that nothing leaves without a back-end.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <regex>

#include "network/CleanupTelemetry.hpp"
#include "network/ScanTelemetry.hpp"
#include "network/Telemetry.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using test::TempDir;
using test::readFile;
using test::writeFile;

// A transport that must never be reached.
class ForbiddenTransport final : public HttpTransport {
 public:
  std::optional<HttpResponse> perform(const HttpRequest& request) override {
    ADD_FAILURE() << "a request went out without a configured back-end: " << request.url;
    return std::nullopt;
  }
};

TEST(TelemetryConfig, ResolvesFromEnvironmentAndDefaults) {
  const std::string url = "https://abcdefghijklmnopqrst.supabase.co";
  struct Case {
    const char* name;
    Environment env;
    std::string_view defaultURL, defaultKey;
    std::optional<Telemetry::Config> expected;
  };
  const Case cases[] = {
      {"defaults alone", {}, url, "key", Telemetry::Config{url, "key"}},
      {"plain build, nothing set", {}, "", "", std::nullopt},
      {"environment overrides both",
       {{"VORLAN_TELEMETRY_URL", "https://other.example"}, {"VORLAN_TELEMETRY_ANON_KEY", "k2"}},
       url, "key", Telemetry::Config{"https://other.example", "k2"}},
      {"environment alone in a plain build",
       {{"VORLAN_TELEMETRY_URL", "https://other.example"}, {"VORLAN_TELEMETRY_ANON_KEY", "k2"}},
       "", "", Telemetry::Config{"https://other.example", "k2"}},
      {"the two variables are independent", {{"VORLAN_TELEMETRY_ANON_KEY", "k2"}}, url, "key",
       Telemetry::Config{url, "k2"}},
      {"blank URL switches off, whatever the key", {{"VORLAN_TELEMETRY_URL", "   "}}, url, "key",
       std::nullopt},
      {"empty key switches off, no fallback", {{"VORLAN_TELEMETRY_ANON_KEY", ""}}, url, "key",
       std::nullopt},
      {"blanks and tabs trimmed, trailing slash kept",
       {{"VORLAN_TELEMETRY_URL", " \thttps://x.example/ \t"}}, "", "key",
       Telemetry::Config{"https://x.example/", "key"}},
      {"a line feed is not a blank", {{"VORLAN_TELEMETRY_ANON_KEY", "key\n"}}, url, "",
       Telemetry::Config{url, "key\n"}},
      {"only a line feed is not empty", {{"VORLAN_TELEMETRY_URL", "\n"}}, "", "key",
       Telemetry::Config{"\n", "key"}},
      {"ideographic space is a blank", {{"VORLAN_TELEMETRY_URL", "\u3000"}}, url, "key",
       std::nullopt},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Telemetry::resolveConfig(c.env, c.defaultURL, c.defaultKey), c.expected) << c.name;
}

TEST(TelemetryConfig, ConsentTextIsSixLinesOfTheAgreedLength) {
  const auto& text = Telemetry::consentSummary;
  EXPECT_EQ(text.size(), 581u);
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5);
  EXPECT_NE(text.find("<masked>"), std::string_view::npos);
}

// Runs `body` with the two variables removed from the process environment, then restores them.
template <typename Body>
void withoutTelemetryVariables(Body body) {
  std::optional<std::string> saved[2];
  const char* names[2] = {"VORLAN_TELEMETRY_URL", "VORLAN_TELEMETRY_ANON_KEY"};
  for (int i = 0; i < 2; ++i) {
    if (const char* v = std::getenv(names[i])) saved[i] = v;
    ::unsetenv(names[i]);
  }
  body();
  for (int i = 0; i < 2; ++i)
    if (saved[i]) ::setenv(names[i], saved[i]->c_str(), 1);
}

TEST(TelemetryConfig, PlainBuildSendsNothingEver) {
  if (!Telemetry::defaultURL.empty() && !Telemetry::defaultAnonKey.empty())
    GTEST_SKIP() << "this build carries deployment values";
  withoutTelemetryVariables([] {
    EXPECT_FALSE(Telemetry::isEnabled());
    ForbiddenTransport forbidden;
    Telemetry::Payload payload;
    payload.installId = "x";
    EXPECT_FALSE(Telemetry::send(payload, forbidden));
    Telemetry::CleanupEvent event;
    event.event = "deleted";
    event.items.push_back({"<masked-1>", 1, "unknown", false});
    EXPECT_FALSE(Telemetry::sendCleanupEvent(event, forbidden));
  });
}

TEST(TelemetryConfig, BlankVariableSwitchesOffEvenWithBuiltInDefaults) {
  withoutTelemetryVariables([] {
    ::setenv("VORLAN_TELEMETRY_URL", " ", 1);
    ::setenv("VORLAN_TELEMETRY_ANON_KEY", "key", 1);
    EXPECT_FALSE(Telemetry::isEnabled());
    ForbiddenTransport forbidden;
    EXPECT_FALSE(Telemetry::send(Telemetry::Payload{}, forbidden));
    ::setenv("VORLAN_TELEMETRY_URL", "https://x.example", 1);
    EXPECT_TRUE(Telemetry::isEnabled());
    ::unsetenv("VORLAN_TELEMETRY_URL");
    ::unsetenv("VORLAN_TELEMETRY_ANON_KEY");
  });
}

TEST(TelemetryConfig, RequestsThatCannotBeMadeAreFalse) {
  ForbiddenTransport forbidden;
  Telemetry::Payload payload;
  const Telemetry::Config cases[] = {
      {"not a url", "key"},
      {"ftp://host.example", "key"},
      {"https://host.example\n", "key"},
      {"https://host.example", "key\r\nX-Injected: 1"},
  };
  for (const auto& config : cases)
    EXPECT_FALSE(Telemetry::send(payload, forbidden, config)) << config.url << " " << config.anonKey;
}

const std::regex uuidForm("^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$");

TEST(InstallID, ReadsKeepsOrReplacesTheFile) {
  struct Case {
    const char* name;
    std::optional<std::string> content;  // absent: no file
    std::optional<std::string> expectedID;  // absent: a new UUID, written to the file
  };
  const Case cases[] = {
      {"no file yet", std::nullopt, std::nullopt},
      {"stored id", "0b8f7e7c-1f3a-4c5e-9d2b-123456789abc", "0b8f7e7c-1f3a-4c5e-9d2b-123456789abc"},
      {"edited word between blanks and a line feed", "  hello \n", "hello"},
      {"Windows line end", "abc\r\n", "abc"},
      {"only line feeds", "\n\n\n", std::nullopt},
      {"only blanks and tabs", " \t ", std::nullopt},
      {"empty file", "", std::nullopt},
      {"not UTF-8", std::string("\xff\xfe id", 5), std::nullopt},
      {"Korean text is kept as it is", " 설치 ", "설치"},
  };
  for (const auto& c : cases) {
    TempDir home;
    const auto file = Telemetry::installIDFile(home.path());
    if (c.content) writeFile(file, *c.content);
    const std::string id = Telemetry::installID(file);
    if (c.expectedID) {
      EXPECT_EQ(id, *c.expectedID) << c.name;
      EXPECT_EQ(readFile(file), *c.content) << c.name << ": the file must stay as it was";
    } else {
      EXPECT_TRUE(std::regex_match(id, uuidForm)) << c.name << ": " << id;
      EXPECT_EQ(readFile(file), id) << c.name << ": written whole, nothing behind it";
      EXPECT_EQ(Telemetry::installID(file), id) << c.name << ": the next read finds the same id";
    }
  }
}

TEST(InstallID, UnstorableIdIsUnknownAndRetriedLater) {
  if (test::runningAsRoot()) GTEST_SKIP() << "root writes into read-only folders";
  TempDir home;
  ASSERT_EQ(::chmod(home.path().c_str(), 0500), 0);
  const auto file = Telemetry::installIDFile(home.path());
  EXPECT_EQ(Telemetry::installID(file), "unknown");
  EXPECT_FALSE(std::filesystem::exists(file));
  ASSERT_EQ(::chmod(home.path().c_str(), 0700), 0);
  const std::string id = Telemetry::installID(file);
  EXPECT_TRUE(std::regex_match(id, uuidForm)) << id;
}

TEST(InstallID, AFolderInThePlaceOfTheFileGivesUnknown) {
  TempDir home;
  const auto file = Telemetry::installIDFile(home.path());
  std::filesystem::create_directories(file);
  EXPECT_EQ(Telemetry::installID(file), "unknown");
  EXPECT_TRUE(std::filesystem::is_directory(file));
}

}  // namespace
}  // namespace vorlan
