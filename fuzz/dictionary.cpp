// The knowledge dictionary's decoder: a file that does not decode gives nothing, never a crash.
#include <cstdint>
#include <string_view>

#include "cleanup/KnowledgeDictionary.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorlan::KnowledgeDictionary::decodeEntries(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
