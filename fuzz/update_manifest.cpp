// The update manifest and the version numbers in it.
#include <cstdint>
#include <string_view>

#include "network/UpdateCheck.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (auto manifest = vorlan::UpdateCheck::decodeManifest(text)) vorlan::UpdateCheck::components(manifest->version);
  vorlan::UpdateCheck::components(text);
  return 0;
}
