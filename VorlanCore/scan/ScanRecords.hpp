// The plain records a scan produces and every later stage reads.
#pragma once
#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlan {

// Every gigabyte figure is decimal; only du's input unit is binary.
inline constexpr double GB = 1000000000.0;

// An amount as every text shows it: "%.1fGB" of decimal gigabytes, with a point whatever
// the locale.
std::string formatGB(int64_t bytes);

enum class Grade { safe, review, never, unknown };

inline constexpr std::array<Grade, 4> gradeAllCases{Grade::safe, Grade::review, Grade::never,
                                                    Grade::unknown};
// The order of report sections: kept data comes last, behind the unclassified.
inline constexpr std::array<Grade, 4> gradeReportOrder{Grade::safe, Grade::review,
                                                       Grade::unknown, Grade::never};

std::string_view rawValue(Grade grade);
std::optional<Grade> gradeFromRaw(std::string_view raw);  // exact, upper case
std::string_view sectionTitle(Grade grade);

struct Finding {
  std::string path;  // home-relative without "~/", or absolute
  std::optional<int64_t> sizeBytes;
  std::string category;
  Grade grade = Grade::unknown;
  std::string note;
  std::string hint;
  bool operator==(const Finding&) const = default;
};

struct ScanProgress {
  int64_t phase = 0;
  std::string message;
  std::optional<std::string> detail;
  std::optional<double> fraction;
  bool operator==(const ScanProgress&) const = default;
};

struct CleanupTotals {
  int64_t staleBytes = 0;
  int64_t orphanBytes = 0;
  bool operator==(const CleanupTotals&) const = default;
};

struct DeepScanResult {
  int64_t diskTotalBytes = 0;
  int64_t diskFreeBytes = 0;
  std::vector<Finding> findings;
  std::optional<int64_t> runningContainers;
  std::vector<std::string> snapshots;
  std::optional<int64_t> diskUsedSettingsBytes;
  std::map<std::string, CleanupTotals> cleanupTotals;
  bool operator==(const DeepScanResult&) const = default;
};

struct DuEntry {
  int64_t bytes = 0;
  std::string path;
  bool operator==(const DuEntry&) const = default;
};

}  // namespace vorlan
