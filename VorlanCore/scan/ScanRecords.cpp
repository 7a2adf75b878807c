#include "scan/ScanRecords.hpp"

#include <fmt/format.h>

namespace vorlan {

std::string formatGB(int64_t bytes) { return fmt::format("{:.1f}GB", static_cast<double>(bytes) / GB); }

std::string_view rawValue(Grade grade) {
  switch (grade) {
    case Grade::safe: return "SAFE";
    case Grade::review: return "REVIEW";
    case Grade::never: return "NEVER";
    case Grade::unknown: return "UNKNOWN";
  }
  return "UNKNOWN";
}

std::optional<Grade> gradeFromRaw(std::string_view raw) {
  for (Grade g : gradeAllCases)
    if (rawValue(g) == raw) return g;
  return std::nullopt;
}

std::string_view sectionTitle(Grade grade) {
  switch (grade) {
    case Grade::safe: return "[안전] 즉시 삭제 가능 (지워도 다시 생기는 캐시 데이터)";
    case Grade::review: return "[확인] 삭제 후보 — 내역 확인 후 진행";
    case Grade::never: return "[보관] 건드리지 않음 (실데이터)";
    case Grade::unknown: return "[미분류] 직접 확인 필요";
  }
  return {};
}

}  // namespace vorlan
