#include <gtest/gtest.h>
#include <unistd.h>

#include "install/InstallLocation.hpp"
#include "platform/ProcessIdentity.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

TEST(InstallLocation, ShouldOfferMove) {
  struct Case { const char* bundle; Environment env; bool offer; };
  const Case cases[] = {
      {"/Applications/Vorlan.app", {}, false},
      {"/Users/kim/Applications/Vorlan.app", {}, false},
      {"/Users/lee/Applications/Vorlan.app", {}, true},
      {"/Applications/Tools/Vorlan.app", {}, true},
      {"/Volumes/Vorlan/Vorlan.app", {}, true},
      {"/Users/kim/Downloads/Vorlan.app", {}, true},
      {"/Users/kim/Downloads/Vorlan.app", {{"VORLAN_SKIP_MOVE", "1"}}, false},
      {"/Users/kim/Downloads/Vorlan.app", {{"VORLAN_SKIP_MOVE", "true"}}, true},
      {"/Users/kim/Downloads/Vorlan.app", {{"VORLAN_SKIP_MOVE", ""}}, true},
      {"/Users/kim/src/vorlan/.build/debug/Vorlan.app", {}, false},
      {"/Users/kim/build/release/VorlanApp/Vorlan", {}, false},
  };
  for (const Case& c : cases)
    EXPECT_EQ(InstallLocation::shouldOfferMove(c.bundle, "/Users/kim", c.env), c.offer) << c.bundle;
}

// `hdiutil info -plist` listing `images`.
std::string hdiutilPlist(const std::string& images) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0"><dict><key>framework</key><string>1</string><key>images</key><array>)" +
         images + "</array></dict></plist>";
}

// One image with a system entity per mount point; an empty one stands for an entity without any.
std::string image(const std::string& path, std::initializer_list<std::string> mounts) {
  std::string text = "<dict><key>image-path</key><string>" + path + "</string><key>system-entities</key><array>";
  for (const auto& m : mounts)
    text += m.empty() ? "<dict><key>content-hint</key><string>x</string></dict>"
                      : "<dict><key>mount-point</key><string>" + m + "</string></dict>";
  return text + "</array></dict>";
}

TEST(InstallLocation, DiskImageMount) {
  using M = InstallLocation::DiskImageMount;
  struct Case { std::string bundle, plist; std::optional<M> expected; };
  const Case cases[] = {
      {"/Volumes/Vorlan/Vorlan.app", hdiutilPlist(image("/d/Vorlan.dmg", {"", "/Volumes/Vorlan"})),
       M{"/d/Vorlan.dmg", "/Volumes/Vorlan"}},
      // The deeper of two nested mounts wins, whichever comes first.
      {"/Volumes/Outer/Inner/Vorlan.app",
       hdiutilPlist(image("/d/outer.dmg", {"/Volumes/Outer"}) + image("/d/inner.dmg", {"/Volumes/Outer/Inner"})),
       M{"/d/inner.dmg", "/Volumes/Outer/Inner"}},
      // A sibling volume whose name merely begins alike does not hold the bundle.
      {"/Volumes/Vorlan 2/Vorlan.app", hdiutilPlist(image("/d/a.dmg", {"/Volumes/Vorlan"})), std::nullopt},
      {"/Volumes/Vorlan/Vorlan.app", hdiutilPlist(""), std::nullopt},
      {"/Volumes/Vorlan/Vorlan.app", "", std::nullopt},
      {"/Volumes/Vorlan/Vorlan.app", "not a plist", std::nullopt},
      {"/Volumes/Vorlan/Vorlan.app", hdiutilPlist("<string>x</string>"), std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(InstallLocation::diskImageMount(c.bundle, c.plist), c.expected) << c.bundle;
}

TEST(InstallCleanup, MarkerIsUsedOnceAndDecodedCarefully) {
  test::TempDir home;
  const auto marker = InstallCleanup::markerPath(home.path());
  const InstallCleanup full{"/Volumes/Vorlan", "/Users/kim/Downloads/Vorlan.dmg", 4242};
  full.save(home.path());
  EXPECT_EQ(test::readFile(marker),
            R"({"mountPoint":"\/Volumes\/Vorlan","imagePath":"\/Users\/kim\/Downloads\/Vorlan.dmg","previousPID":4242})");
  EXPECT_EQ(InstallCleanup::consume(home.path()), full);
  EXPECT_EQ(InstallCleanup::consume(home.path()), std::nullopt);
  struct Case { const char* text; std::optional<InstallCleanup> expected; };
  const Case cases[] = {
      {"{}", InstallCleanup{}}, {R"({"previousPID":7})", InstallCleanup{std::nullopt, std::nullopt, 7}},
      {"{not json", std::nullopt}, {R"({"previousPID":"7"})", std::nullopt},
      {R"({"previousPID":99999999999})", std::nullopt}, {"[]", std::nullopt},
  };
  for (const Case& c : cases) {
    test::writeFile(marker, c.text);
    EXPECT_EQ(InstallCleanup::consume(home.path()), c.expected) << c.text;
    EXPECT_FALSE(std::filesystem::exists(marker)) << c.text;
  }
}

TEST(ProcessIdentity, AProcessIdCountsOnlyForTheSameExecutable) {
  const auto self = executableOfProcess(::getpid());
  ASSERT_TRUE(self);
  EXPECT_TRUE(processRunsExecutable(::getpid(), *self));
  // Another program, no process, and a pid beyond any the kernel hands out.
  const std::string sh = "/bin/sh";
  for (const auto& [pid, exe] : {std::pair{::getpid(), sh}, {0, *self}, {-1, *self}, {0x7ffffff0, *self}})
    EXPECT_FALSE(processRunsExecutable(pid, exe)) << pid << " " << exe;
}

}  // namespace
}  // namespace vorlan
