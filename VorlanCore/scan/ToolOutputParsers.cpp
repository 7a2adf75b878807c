#include "scan/ToolOutputParsers.hpp"

#include <algorithm>
#include <charconv>
#include <limits>

namespace vorlan {
namespace {

// Tab and the space separators of Unicode (category Zs).
bool isHorizontalBlank(char32_t c) {
  return c == U'\t' || c == U' ' || c == 0x00A0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x202F || c == 0x205F || c == 0x3000;
}

// Length in bytes of the blank that `text` starts with, or 0.
size_t leadingBlank(std::string_view text) {
  if (text.empty()) return 0;
  auto b = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  // File names need not be valid UTF-8: a broken sequence is never a blank.
  auto continues = [&](size_t i) { return i < text.size() && (b(i) & 0xC0) == 0x80; };
  if (b(0) < 0x80) return isHorizontalBlank(b(0)) ? 1 : 0;
  if ((b(0) & 0xE0) == 0xC0 && continues(1)) {
    char32_t c = ((b(0) & 0x1Fu) << 6) | (b(1) & 0x3Fu);
    return isHorizontalBlank(c) ? 2 : 0;
  }
  if ((b(0) & 0xF0) == 0xE0 && continues(1) && continues(2)) {
    char32_t c = ((b(0) & 0x0Fu) << 12) | ((b(1) & 0x3Fu) << 6) | (b(2) & 0x3Fu);
    return isHorizontalBlank(c) ? 3 : 0;
  }
  return 0;  // four-byte sequences hold no blanks
}

// Length in bytes of the blank that `text` ends with, or 0.
size_t trailingBlank(std::string_view text) {
  // Every blank is at most three bytes long; find where the last character starts.
  size_t start = text.size();
  for (size_t back = 1; back <= 3 && back <= text.size(); ++back) {
    unsigned char c = static_cast<unsigned char>(text[text.size() - back]);
    if ((c & 0xC0) != 0x80) {
      start = text.size() - back;
      break;
    }
  }
  if (start == text.size()) return 0;
  size_t length = leadingBlank(text.substr(start));
  return length == text.size() - start ? length : 0;
}

bool allAsciiDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::string_view trimBlanks(std::string_view text) {
  while (size_t n = leadingBlank(text)) text.remove_prefix(n);
  while (size_t n = trailingBlank(text)) text.remove_suffix(n);
  return text;
}

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
