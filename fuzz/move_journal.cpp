// A move or restore journal as a kill, or anyone, may have left it: whatever it holds, reading
// it gives entries or passes the line over, never a crash.
#include <cstdint>
#include <string_view>

#include "quarantine/MoveJournal.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vorlan::parseJournal(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
