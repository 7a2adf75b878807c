// The move marker left for the next start: it decodes or gives nothing.
#include <cstdint>
#include <string_view>

#include "install/InstallLocation.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorlan::InstallCleanup::decode(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
