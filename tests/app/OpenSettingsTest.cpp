#include <gtest/gtest.h>

#include "flow/OpenSettings.hpp"

namespace vorlan::app {
namespace {

TEST(OpenSettings, WalksCandidatesUntilOneOpens) {
  struct Case {
    QStringList urls;
    QStringList refused;
    QStringList expectedTries;
  };
  const QString a = "x-apple.systempreferences:com.apple.settings.Storage?Storage";
  const QString b = "x-apple.systempreferences:com.apple.settings.Storage";
  const QString c = "x-apple.systempreferences:";
  const Case cases[] = {
      {{}, {}, {}},
      {{a, b, c}, {}, {a}},
      {{a, b, c}, {a}, {a, b}},
      {{a, b, c}, {a, b, c}, {a, b, c}},
      {{"", "::not a url", b}, {}, {b}},
  };
  for (const Case& tc : cases) {
    QStringList tried;
    openSettings(tc.urls, [&](const QUrl& url) {
      tried << url.toString();
      return !tc.refused.contains(url.toString());
    });
    EXPECT_EQ(tried, tc.expectedTries) << tc.urls.join(" | ").toStdString();
  }
}

}  // namespace
}  // namespace vorlan::app
