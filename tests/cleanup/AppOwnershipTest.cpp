#include <gtest/gtest.h>
#include <plist/plist.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "cleanup/AppOwnership.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using Strings = std::vector<std::string>;

TEST(AppOwnership, ReverseDNSAndCandidates) {
  struct Case { const char* name; bool reverseDNS; Strings candidates; };
  const Case cases[] = {
      {"com.foo", false, {"com.foo"}},
      {"com.foo.bar", true, {"com.foo.bar"}},
      {"com.foo.", true, {"com.foo."}},
      {"com_x.foo.bar", false, {"com_x.foo.bar"}},
      {"com.fo o.bar", false, {"com.fo o.bar"}},
      {".com.foo", false, {".com.foo"}},
      {"Foo.bar", false, {"Foo.bar"}},
      {"group.com.foo", true, {"group.com.foo", "com.foo"}},
      {"group.com.foo.bar", true, {"group.com.foo.bar", "com.foo.bar"}},
      {"groups.com.foo.bar", true, {"groups.com.foo.bar", "com.foo.bar"}},
      {"ABCDE12345.com.foo.bar", true, {"ABCDE12345.com.foo.bar", "com.foo.bar"}},
      {"group.ABCDE12345.com.foo.bar", true,
       {"group.ABCDE12345.com.foo.bar", "ABCDE12345.com.foo.bar", "com.foo.bar"}},
      // Lower case, nine characters or a prefix other than group(s) stops the peeling.
      {"ABCDEFGHIj.com.foo.bar", true, {"ABCDEFGHIj.com.foo.bar"}},
      {"ABCDE1234.com.foo.bar", true, {"ABCDE1234.com.foo.bar"}},
      {"Group.com.foo.bar", true, {"Group.com.foo.bar"}},
      // At most three rounds.
      {"group.group.group.group.com.foo", true,
       {"group.group.group.group.com.foo", "group.group.group.com.foo", "group.group.com.foo",
        "group.com.foo"}},
      {"group.foo", false, {"group.foo"}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isReverseDNS(c.name), c.reverseDNS) << c.name;
    EXPECT_EQ(candidateIdentities(c.name), c.candidates) << c.name;
  }
}

TEST(AppOwnership, FirstPartyRelatedOwnedRunning) {
  const std::set<std::string> installed{"com.foo.app", "org.single", "net.tool.cli"};
  const std::set<std::string> running{"com.foo.app", "com.bar.baz"};
  struct Case {
    const char* name;
    bool firstParty, related, owned, isRunning;
  };
  const Case cases[] = {
      {"com.apple.Safari", true, false, false, false},
      {"group.com.apple.notes", true, false, false, false},
      {"UBF8T346G9.com.apple.mail", true, false, false, false},
      {"com.apples.tool", false, false, false, false},
      {"com.foo.app", false, true, true, true},
      {"com.foo.app.helper", false, true, true, false},
      {"com.foo.application", false, true, false, false},
      {"com.foo.other", false, true, false, false},
      {"group.com.foo.app", false, true, true, true},
      {"ABCDE12345.com.foo.app.helper", false, true, true, false},
      {"com.foo", false, false, false, false},
      {"net.tool.cli", false, true, true, false},
      {"org.single.thing", false, true, true, false},
      {"org.singles.x", false, false, false, false},
      {"com.bar.baz", false, false, false, true},
      {"com.barx.baz", false, false, false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(isFirstParty(c.name), c.firstParty) << c.name;
    EXPECT_EQ(isRelatedToInstalledApp(c.name, installed), c.related) << c.name;
    EXPECT_EQ(isOwnedByInstalledApp(c.name, installed), c.owned) << c.name;
    EXPECT_EQ(isCurrentlyRunning(c.name, running), c.isRunning) << c.name;
  }
  // A plain name is never in use, even when a process of that name runs.
  EXPECT_FALSE(isCurrentlyRunning("firefox", {"firefox"}));
  EXPECT_FALSE(isRelatedToInstalledApp("com.foo.app", {}));
}

// Writes an Info.plist as the system's own tools would, in XML or binary form.
void writeInfoPlist(const std::filesystem::path& app, plist_t root, bool binary) {
  char* data = nullptr;
  uint32_t length = 0;
  if (binary) plist_to_bin(root, &data, &length); else plist_to_xml(root, &data, &length);
  test::writeFile(app / "Contents" / "Info.plist", std::string(data, length));
  if (binary) plist_to_bin_free(data); else plist_to_xml_free(data);
  plist_free(root);
}

plist_t infoWithIdentifier(plist_t identifier) {
  plist_t dict = plist_new_dict();
  plist_dict_set_item(dict, "CFBundleName", plist_new_string("Some App"));
  if (identifier) plist_dict_set_item(dict, "CFBundleIdentifier", identifier);
  return dict;
}

TEST(AppOwnership, InstalledIdentitiesFromXmlAndBinaryInfoPlists) {
  test::TempDir home;
  const auto system = home / "Applications-system";
  const auto user = home / "Applications";
  writeInfoPlist(system / "Xml.app", infoWithIdentifier(plist_new_string("com.example.xml")), false);
  writeInfoPlist(system / "Binary.app", infoWithIdentifier(plist_new_string("com.example.bin")), true);
  writeInfoPlist(user / "Mine.app", infoWithIdentifier(plist_new_string("org.me.tool")), true);
  // None of these may add anything.
  writeInfoPlist(system / "Empty.app", infoWithIdentifier(plist_new_string("")), true);
  writeInfoPlist(system / "NoId.app", infoWithIdentifier(nullptr), false);
  writeInfoPlist(system / "NumberId.app", infoWithIdentifier(plist_new_uint(7)), true);
  plist_t array = plist_new_array();
  plist_array_append_item(array, plist_new_string("com.example.array"));
  writeInfoPlist(system / "Array.app", array, false);
  writeInfoPlist(system / ".app", infoWithIdentifier(plist_new_string("com.example.dotapp")), false);
  writeInfoPlist(system / "NotAnApp", infoWithIdentifier(plist_new_string("com.example.notapp")), false);
  writeInfoPlist(system / "Vendor" / "Nested.app",
                 infoWithIdentifier(plist_new_string("com.example.nested")), false);
  test::writeFile(system / "Garbage.app" / "Contents" / "Info.plist", "<plist><dict><key>Half");
  test::writeFile(system / "Truncated.app" / "Contents" / "Info.plist", "bplist00\x01\x02");
  std::filesystem::create_directories(system / "NoPlist.app");

  const std::set<std::string> expected{"com.example.xml", "com.example.bin", "org.me.tool"};
  EXPECT_EQ(installedBundleIDs({system, home / "missing", user}), expected);
  EXPECT_EQ(defaultAppDirs(home.path()).back(), user);

  if (test::runningAsRoot()) return;  // root reads any folder
  std::filesystem::permissions(system, std::filesystem::perms::none);
  EXPECT_EQ(installedBundleIDs({system, user}), std::set<std::string>{"org.me.tool"});
}

TEST(AppOwnership, RunningIncludesThisProcess) {
#ifdef __APPLE__
  GTEST_SKIP() << "on macOS only application bundles count as running";
#else
  // On Linux the stand-in names the current user's executables by base name.
  char self[4096];
  ssize_t n = ::readlink("/proc/self/exe", self, sizeof self - 1);
  ASSERT_GT(n, 0);
  std::string name = std::filesystem::path(std::string(self, static_cast<size_t>(n))).filename();
  EXPECT_TRUE(runningBundleIDs().contains(name)) << name;
#endif
}

}  // namespace
}  // namespace vorlan
