// A batch's manifest as any file in the store might hold it: it decodes or throws the decoding
// error, and what decodes encodes and decodes again to the same batch.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "quarantine/QuarantineRecords.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const auto batch = vorlan::decodeManifest(text);
    if (vorlan::decodeManifest(vorlan::encodeManifest(batch)) != batch) std::abort();
  } catch (const vorlan::ManifestDecodingError&) {
  }
  return 0;
}
