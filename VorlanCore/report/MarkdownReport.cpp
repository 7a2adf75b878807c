#include "report/MarkdownReport.hpp"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <ctime>
#include <vector>

#include "platform/AtomicFile.hpp"
#include "report/Ledger.hpp"

namespace vorlan {
namespace {

// Length of the UTF-8 sequence starting at text[i], or 0 when it is not a valid one
// (overlong forms, surrogates and values above U+10FFFF included).
size_t utf8SequenceLength(std::string_view text, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
  const unsigned char lead = byte(i);
  size_t length;
  unsigned char low = 0x80, high = 0xBF;  // range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (i + length > text.size()) return 0;
  if (byte(i + 1) < low || byte(i + 1) > high) return 0;
  for (size_t k = 2; k < length; ++k)
    if (byte(i + k) < 0x80 || byte(i + k) > 0xBF) return 0;
  return length;
}

// Shortest text that reads back as the same double, always with a digit behind the point.
// JSON has no infinity or NaN, so those become null.
std::string jsonNumber(double value) {
  if (!std::isfinite(value)) return "null";
  std::string text = fmt::format("{}", value);
  if (text.find('.') != std::string::npos) return text;
  const size_t exponent = text.find('e');
  if (exponent == std::string::npos) return text + ".0";
  text.insert(exponent, ".0");  // 1e+16 reads 1.0e+16
  return text;
}

template <typename T>
std::string orNull(const std::optional<T>& value) {
  return value ? fmt::format("{}", *value) : std::string("null");
}

std::string joinLines(const std::vector<std::string>& lines) {
  return fmt::format("{}", fmt::join(lines, "\n"));
}

void appendFenced(std::vector<std::string>& lines, const std::vector<std::string>& block,
                  std::string_view opening = "```") {
  lines.emplace_back(opening);
  lines.insert(lines.end(), block.begin(), block.end());
  lines.emplace_back("```");
}

}  // namespace

std::string isoToday(int64_t now) {
  const std::time_t t = static_cast<std::time_t>(now);
  std::tm local{};
  if (::localtime_r(&t, &local) == nullptr) return "1970-01-01";
  return fmt::format("{:04}-{:02}-{:02}", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

std::string jsonEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size() + 2);
  out += '"';
  for (size_t i = 0; i < text.size();) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      const size_t length = utf8SequenceLength(text, i);
      if (length == 0) {
        out += "\xEF\xBF\xBD";
        ++i;
      } else {
        out.append(text.substr(i, length));
        i += length;
      }
      continue;
    }
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20)
          out += fmt::format("\\u{:04x}", c);
        else
          out += static_cast<char>(c);
    }
    ++i;
  }
  out += '"';
  return out;
}

std::string jsonAppendix(const DeepScanResult& result, std::optional<double> systemDataGB) {
  std::vector<std::string> lines{
      "{",
      fmt::format("  \"system_data_gb_manual\": {},",
                  systemDataGB ? jsonNumber(*systemDataGB) : "null"),
      fmt::format("  \"disk_total_bytes\": {},", result.diskTotalBytes),
      fmt::format("  \"disk_free_bytes\": {},", result.diskFreeBytes),
      fmt::format("  \"disk_used_settings_bytes\": {},", orNull(result.diskUsedSettingsBytes)),
      fmt::format("  \"running_containers\": {},", orNull(result.runningContainers)),
  };
  if (result.findings.empty()) {
    lines.emplace_back("  \"findings\": []");
  } else {
    lines.emplace_back("  \"findings\": [");
    for (size_t i = 0; i < result.findings.size(); ++i) {
      const Finding& f = result.findings[i];
      lines.emplace_back("    {");
      lines.push_back("      \"path\": " + jsonEscape(f.path) + ",");
      lines.push_back("      \"size_bytes\": " + orNull(f.sizeBytes) + ",");
      lines.push_back("      \"category\": " + jsonEscape(f.category) + ",");
      lines.push_back("      \"grade\": " + jsonEscape(rawValue(f.grade)) + ",");
      lines.push_back("      \"note\": " + jsonEscape(f.note) + ",");
      lines.push_back("      \"hint\": " + jsonEscape(f.hint));
      lines.emplace_back(i + 1 < result.findings.size() ? "    }," : "    }");
    }
    lines.emplace_back("  ]");
  }
  lines.emplace_back("}");
  return joinLines(lines);
}

std::string renderMarkdown(const DeepScanResult& result, std::optional<double> systemDataGB,
                           std::optional<double> durationS, std::string_view dateString,
                           std::string_view email) {
  std::vector<std::string> lines{fmt::format("# Vorlan 시스템 데이터 해부 리포트 — {}", dateString),
                                 ""};
  if (auto sheet = balanceSheet(result, systemDataGB); !sheet.empty()) {
    appendFenced(lines, sheet);
    lines.emplace_back();
  }
  if (auto note = icloudNote(result)) {
    lines.push_back(*note);
    lines.emplace_back();
  }
  if (auto ledger = reconcile(result, systemDataGB); !ledger.empty()) {
    appendFenced(lines, ledger);
    lines.emplace_back();
  }
  appendFenced(lines, {renderReport(result, reportMinBytes, email)});
  if (durationS) lines.push_back(fmt::format("\n스캔 소요: {:.0f}초", *durationS));
  lines.emplace_back();
  lines.emplace_back("---");
  lines.emplace_back("이 리포트는 읽기 전용 스캔의 결과이며 아무것도 삭제하지 않았습니다.");
  lines.emplace_back("베타 참여 중이라면 이 파일을 그대로 보내주세요.");
  lines.emplace_back();
  appendFenced(lines, {jsonAppendix(result, systemDataGB)}, "```json");
  return joinLines(lines);
}

std::filesystem::path writeReportFile(std::string_view markdown,
                                      const std::filesystem::path& folder,
                                      std::string_view dateString) {
  std::filesystem::create_directories(folder);
  const auto target = folder / fmt::format("Vorlan-리포트-{}.md", dateString);
  writeFileAtomically(target, markdown);
  return target;
}

}  // namespace vorlan
