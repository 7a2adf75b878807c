// The parsers of du, tmutil and diskutil output and of the typed figure: never a crash, and
// every du entry keeps a size that fits and a path that is not empty.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "report/Ledger.hpp"
#include "scan/ToolOutputParsers.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const auto& entry : vorlan::parseDuEntries(text))
    if (entry.path.empty() || entry.bytes < 0) std::abort();
  vorlan::mergeSnapshotNames(vorlan::parseSnapshotList(text), vorlan::parseDiskutilSnapshots(text));
  if (auto figure = vorlan::parseDecimalFigure(text); figure && !(*figure >= 0)) std::abort();
  return 0;
}
