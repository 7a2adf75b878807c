// The report file a user saves and may send on: Markdown built from the balance, the
// reconciliation and the text report, with the scan's raw figures as a hand-laid JSON appendix.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "report/TextReport.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan {

// "yyyy-MM-dd" of `now` (seconds since 1970) in the machine's current time zone.
std::string isoToday(int64_t now);

// `text` as a JSON string literal, quotes included. Bytes that are not valid UTF-8 (a Linux
// file name may hold any) become U+FFFD so that the appendix always parses.
std::string jsonEscape(std::string_view text);

// The scan's raw figures and every finding, in a fixed layout, no line feed at the end.
std::string jsonAppendix(const DeepScanResult& result, std::optional<double> systemDataGB);

// The whole report file's text. `dateString` is usually isoToday(now); the caller passes the
// same one to writeReportFile so that the title and the file name agree.
std::string renderMarkdown(const DeepScanResult& result, std::optional<double> systemDataGB,
                           std::optional<double> durationS, std::string_view dateString,
                           std::string_view email = supportEmail());

// Writes "Vorlan-리포트-<date>.md" into `folder` (created with its parents) atomically,
// replacing an earlier report of the same date, and returns its location. Throws
// std::filesystem::filesystem_error or std::system_error with the file system's error.
std::filesystem::path writeReportFile(std::string_view markdown,
                                      const std::filesystem::path& folder,
                                      std::string_view dateString);

}  // namespace vorlan
