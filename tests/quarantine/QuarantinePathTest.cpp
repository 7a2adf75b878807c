// The checks that keep every path inside the home folder and the batch, and the batch ids.
#include <gtest/gtest.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <optional>

#include "quarantine/Quarantine.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

namespace fs = std::filesystem;
using test::TempDir;

class QuarantinePaths : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(home / "Documents");
    fs::create_directories(home / "Library");
    fs::create_directories(outside);
    fs::create_symlink(outside, home / "out");
    fs::create_symlink(home / "Documents", home / "in");
  }
  TempDir dir;
  fs::path home = dir / "home";
  fs::path outside = dir / "outside";
  Quarantine quarantine{Quarantine::defaultRoot(home), home};
};

template <typename F>
std::optional<QuarantineError> refusal(F&& call) {
  try {
    call();
  } catch (const QuarantineError& e) {
    return e;
  }
  return std::nullopt;
}

TEST_F(QuarantinePaths, HomeRelativePathsAreStandardisedOrRefused) {
  struct Case {
    std::string path;
    std::optional<std::string> relative;  // absent: refused with outsideHome
  };
  const Case cases[] = {
      {"Documents/x", "Documents/x"},
      {"Library/../Documents/x", "Documents/x"},
      {"./Documents//x/", "Documents/x"},
      {"out", "out"},    // a link leading out is an item of its own, moved as a link
      {"in/x", "in/x"},  // through a link that stays inside the home folder
      {"/etc/passwd", std::nullopt},
      {"..", std::nullopt},
      {"a/../../b", std::nullopt},
      {"", std::nullopt},  // the home folder itself
      {".", std::nullopt},
      {"Documents/..", std::nullopt},
      {"out/x", std::nullopt},  // through a link that leads out
      {"out/deeper/x", std::nullopt},
      {std::string("Documents/a\0/../../../etc", 25), std::nullopt},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    if (c.relative) {
      HomePath resolved = quarantine.resolveInsideHome(c.path);
      EXPECT_EQ(resolved.relative, *c.relative);
      EXPECT_EQ(resolved.location, home / *c.relative);
    } else {
      auto error = refusal([&] { quarantine.resolveInsideHome(c.path); });
      ASSERT_TRUE(error);
      EXPECT_EQ(error->kind(), QuarantineErrorKind::outsideHome);
      EXPECT_EQ(error->value(), c.path);
    }
  }
}

TEST_F(QuarantinePaths, BatchRelativePathsStayInTheirBatch) {
  const fs::path batch = dir / "root" / "2026-03-14T091502";
  fs::create_directories(batch / "Library");
  fs::create_directories(dir / "root" / "other");
  fs::create_symlink(outside, batch / "esc");
  struct Case {
    std::string path;
    bool accepted;
  };
  const Case cases[] = {
      {"Library/Caches/x", true},
      {"/Library/x", true},  // joined relatively all the same
      {"esc", true},         // the link itself
      {"../other/x", false},
      {"Library/../../other/x", false},
      {"", false},
      {"esc/x", false},
      {"esc/../../other", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    if (c.accepted) {
      fs::path resolved = Quarantine::resolveInsideBatch(batch, c.path);
      EXPECT_TRUE(resolved.string().starts_with(batch.string() + "/"));
    } else {
      auto error = refusal([&] { Quarantine::resolveInsideBatch(batch, c.path); });
      ASSERT_TRUE(error);
      EXPECT_EQ(error->kind(), QuarantineErrorKind::outsideBatch);
      EXPECT_EQ(error->value(), c.path);
    }
  }
}

TEST_F(QuarantinePaths, BatchIdsMustBeOnePlainName) {
  EXPECT_EQ(quarantine.resolveBatchDir("2026-03-14T091502"), quarantine.root / "2026-03-14T091502");
  for (std::string id : {std::string("a/b"), std::string(".."), std::string("."), std::string(""),
                         std::string("../quarantine"), std::string("x\0y", 3)}) {
    SCOPED_TRACE(id);
    auto error = refusal([&] { quarantine.resolveBatchDir(id); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), QuarantineErrorKind::outsideQuarantine);
    EXPECT_EQ(error->value(), id);
  }
}

TEST(QuarantineIds, AreTheUtcTimeWithoutColons) {
  EXPECT_EQ(Quarantine::batchID(1773479702), "2026-03-14T091502");
  EXPECT_EQ(Quarantine::batchID(0), "1970-01-01T000000");
  EXPECT_EQ(Quarantine::batchID(-1), "1969-12-31T235959");
}

TEST(QuarantineIds, SameSecondGetsASuffixUntilTheAttemptsRunOut) {
  TempDir dir;
  Quarantine quarantine(dir / "root", dir.path());
  const int64_t now = 1773479702;
  // The root does not exist yet and is made private.
  EXPECT_EQ(quarantine.createBatchDirectory(now, 100).id, "2026-03-14T091502");
  EXPECT_EQ(fs::status(dir / "root").permissions() & fs::perms::all, fs::perms::owner_all);
  EXPECT_EQ(quarantine.createBatchDirectory(now, 100).id, "2026-03-14T091502-2");
  for (int n = 3; n <= 100; ++n) fs::create_directory(dir / "root" / fmt::format("2026-03-14T091502-{}", n));
  auto exhausted = refusal([&] { quarantine.createBatchDirectory(now, 100); });
  ASSERT_TRUE(exhausted);
  EXPECT_EQ(exhausted->kind(), QuarantineErrorKind::batchIDExhausted);
  EXPECT_EQ(exhausted->value(), "2026-03-14T091502");
  // A stray file with the id's name takes it just as a folder does.
  test::writeFile(dir / "root" / "2026-03-14T091503", "x");
  EXPECT_EQ(quarantine.createBatchDirectory(now + 1, 2).id, "2026-03-14T091503-2");
}

TEST(QuarantineIds, NoAttemptsStillMakesOne) {
  TempDir dir;
  Quarantine quarantine(dir / "root", dir.path());
  for (int attempts : {0, -3}) {
    SCOPED_TRACE(attempts);
    const int64_t now = 1773479702 + attempts;
    EXPECT_EQ(quarantine.createBatchDirectory(now, attempts).id, Quarantine::batchID(now));
    auto error = refusal([&] { quarantine.createBatchDirectory(now, attempts); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind(), QuarantineErrorKind::batchIDExhausted);
  }
}

}  // namespace
}  // namespace vorlan
