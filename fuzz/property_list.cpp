// An application's Info.plist, XML or binary, as any bundle on the disk might hold it.
#include <cstdint>
#include <string_view>

#include "platform/PropertyList.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorlan::parsePropertyList(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
