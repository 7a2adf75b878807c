// Pure readers of the system tools' standard output. They skip what they cannot read and
// never fail, so captured text can be fed to them without the tools.
#pragma once
#include <string>
#include <string_view>
#include <vector>

// trimBlanks, the one trim the system uses for tool output and configuration alike: tabs,
// spaces and the other Unicode space separators, never line feeds.
#include "platform/Utf8Text.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan {

// The non-empty pieces of `text` between line feeds, in order.
std::vector<std::string_view> splitLines(std::string_view text);

// `du -k` output: "KILOBYTES<tab>PATH" lines, sizes turned into bytes; other lines skipped.
std::vector<DuEntry> parseDuEntries(std::string_view text);

// `tmutil listlocalsnapshots /` output: every line naming a Time Machine snapshot.
std::vector<std::string> parseSnapshotList(std::string_view text);

// `diskutil apfs listSnapshots /` output: the values of "Name:" lines.
std::vector<std::string> parseDiskutilSnapshots(std::string_view text);

// `primary` as it is, then each name of `secondary` that the list does not hold yet.
std::vector<std::string> mergeSnapshotNames(const std::vector<std::string>& primary,
                                            const std::vector<std::string>& secondary);

}  // namespace vorlan
