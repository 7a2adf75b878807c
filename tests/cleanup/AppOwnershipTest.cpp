#include <gtest/gtest.h>
#include <plist/plist.h>

#include "cleanup/AppOwnership.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

TEST(AppOwnership, CandidatesPeelGroupAndTeamPrefixes) {
  using Strings = std::vector<std::string>;
  const std::tuple<const char*, bool, Strings> cases[] = {
      {"com.foo", false, {"com.foo"}},
      {"com_x.foo.bar", false, {"com_x.foo.bar"}},
      {"group.com.foo", true, {"group.com.foo", "com.foo"}},
      {"groups.com.foo.bar", true, {"groups.com.foo.bar", "com.foo.bar"}},
      {"ABCDE12345.com.foo.bar", true, {"ABCDE12345.com.foo.bar", "com.foo.bar"}},
      {"group.ABCDE12345.com.foo.bar", true,
       {"group.ABCDE12345.com.foo.bar", "ABCDE12345.com.foo.bar", "com.foo.bar"}},
      // Lower case or another prefix word stops the peeling.
      {"ABCDEFGHIj.com.foo.bar", true, {"ABCDEFGHIj.com.foo.bar"}},
      {"Group.com.foo.bar", true, {"Group.com.foo.bar"}},
      {"group.group.group.group.com.foo", true,
       {"group.group.group.group.com.foo", "group.group.group.com.foo", "group.group.com.foo",
        "group.com.foo"}},
  };
  for (const auto& [name, reverseDNS, candidates] : cases) {
    EXPECT_EQ(isReverseDNS(name), reverseDNS) << name;
    EXPECT_EQ(candidateIdentities(name), candidates) << name;
  }
}

TEST(AppOwnership, FirstPartyRelatedOwnedRunning) {
  const std::set<std::string> installed{"com.foo.app", "org.single"};
  const std::set<std::string> running{"com.foo.app", "firefox"};
  const std::tuple<const char*, bool, bool, bool, bool> cases[] = {
      // name, first party, related, owned, running
      {"group.com.apple.notes", true, false, false, false},
      {"com.apples.tool", false, false, false, false},
      {"com.foo.app.helper", false, true, true, false},
      {"com.foo.application", false, true, false, false},
      {"group.com.foo.app", false, true, true, true},
      {"ABCDE12345.com.foo.app.helper", false, true, true, false},
      {"org.single.thing", false, true, true, false},
      {"org.singles.x", false, false, false, false},
      {"firefox", false, false, false, false},  // plain names are never in use
  };
  for (const auto& [name, firstParty, related, owned, isRunning] : cases) {
    EXPECT_EQ(isFirstParty(name), firstParty) << name;
    EXPECT_EQ(isRelatedToInstalledApp(name, installed), related) << name;
    EXPECT_EQ(isOwnedByInstalledApp(name, installed), owned) << name;
    EXPECT_EQ(isCurrentlyRunning(name, running), isRunning) << name;
  }
}

TEST(AppOwnership, InstalledIdentitiesFromXmlAndBinaryInfoPlists) {
  test::TempDir home;
  const auto apps = home / "Applications";
  auto write = [&](const char* bundle, plist_t identifier, bool binary) {
    plist_t root = plist_new_dict();
    plist_dict_set_item(root, "CFBundleIdentifier", identifier);
    char* data = nullptr;
    uint32_t length = 0;
    binary ? plist_to_bin(root, &data, &length) : plist_to_xml(root, &data, &length);
    test::writeFile(apps / bundle / "Contents/Info.plist", std::string(data, length));
    binary ? plist_to_bin_free(data) : plist_to_xml_free(data);
    plist_free(root);
  };
  write("Xml.app", plist_new_string("com.example.xml"), false);
  write("Binary.app", plist_new_string("com.example.bin"), true);
  write("Empty.app", plist_new_string(""), true);
  write("NumberId.app", plist_new_uint(7), true);
  test::writeFile(apps / "Garbage.app/Contents/Info.plist", "<plist><dict><key>Half");
  test::writeFile(apps / "Truncated.app/Contents/Info.plist", "bplist00\x01\x02");
  EXPECT_EQ(installedBundleIDs({apps, home / "missing"}),
            (std::set<std::string>{"com.example.xml", "com.example.bin"}));
}

}  // namespace
}  // namespace vorlan
