#include "scan/ToolOutputParsers.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

namespace vorlan {
namespace {

bool allAsciiDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

std::vector<DuEntry> parseDuEntries(std::string_view text) {
  std::vector<DuEntry> entries;
  for (std::string_view line : splitLines(text)) {
    size_t tab = line.find('\t');
    if (tab == std::string_view::npos) continue;
    std::string_view sizePart = trimBlanks(line.substr(0, tab));
    std::string_view pathPart = trimBlanks(line.substr(tab + 1));
    // Digits only: a sign, or a digit of another script, is not a size du prints.
    if (sizePart.empty() || !allAsciiDigits(sizePart) || pathPart.empty()) continue;
    int64_t kilobytes = 0;
    auto [end, error] = std::from_chars(sizePart.data(), sizePart.data() + sizePart.size(), kilobytes);
    if (error != std::errc{} || end != sizePart.data() + sizePart.size()) continue;
    if (kilobytes > std::numeric_limits<int64_t>::max() / 1024) continue;
    entries.push_back(DuEntry{kilobytes * 1024, std::string(pathPart)});
  }
  return entries;
}

std::vector<std::string> parseSnapshotList(std::string_view text) {
  std::vector<std::string> names;
  for (std::string_view line : splitLines(text)) {
    std::string_view trimmed = trimBlanks(line);
    if (trimmed.find("com.apple.TimeMachine.") != std::string_view::npos)
      names.emplace_back(trimmed);
  }
  return names;
}

std::vector<std::string> parseDiskutilSnapshots(std::string_view text) {
  std::vector<std::string> names;
  for (std::string_view line : splitLines(text)) {
    std::string_view trimmed = trimBlanks(line);
    size_t colon = trimmed.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view key = trimBlanks(trimmed.substr(0, colon));
    std::string_view value = trimBlanks(trimmed.substr(colon + 1));
    if (key == "Name" && !value.empty()) names.emplace_back(value);
  }
  return names;
}

std::vector<std::string> mergeSnapshotNames(const std::vector<std::string>& primary,
                                            const std::vector<std::string>& secondary) {
  std::vector<std::string> merged = primary;
  for (const std::string& name : secondary)
    if (std::find(merged.begin(), merged.end(), name) == merged.end()) merged.push_back(name);
  return merged;
}

}  // namespace vorlan
