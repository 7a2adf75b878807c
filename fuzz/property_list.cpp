// An application's Info.plist or `hdiutil info -plist`, XML or binary, as the disk or the tool
// might hand it over: the tree is parsed and then read the way the program reads it.
#include <cstdint>
#include <string_view>

#include "install/InstallLocation.hpp"
#include "platform/PropertyList.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const vorlan::PlistTree root = vorlan::parsePropertyList(bytes);
  vorlan::plistString(root.get(), "CFBundleIdentifier");
  vorlan::InstallLocation::diskImageMount("/Volumes/Vorlan/Vorlan.app", bytes);
  return 0;
}
