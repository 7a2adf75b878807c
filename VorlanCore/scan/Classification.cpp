#include "scan/Classification.hpp"

#include <algorithm>
#include <limits>

#include "platform/Utf8Text.hpp"
#include "scan/RuleTable.hpp"

namespace vorlan {
namespace {


}  // namespace

bool isAtOrUnder(std::string_view path, std::string_view base) {
  if (!path.starts_with(base)) return false;
  return path.size() == base.size() || path[base.size()] == '/';
}

Finding classify(std::string_view path, std::optional<int64_t> size, const HasBinary& hasBinary) {
  const Rule* best = nullptr;
  size_t bestLength = 0;
  for (const Rule& rule : rules()) {
    if (!isAtOrUnder(path, rule.subpath)) continue;
    size_t length = codePointCount(rule.subpath);
    if (best == nullptr || length > bestLength) {
      best = &rule;
      bestLength = length;
    }
  }
  if (best == nullptr)
    return Finding{std::string(path), size, std::string(unclassifiedCategory), Grade::unknown,
                   std::string(unclassifiedNote), ""};

  Finding finding{std::string(path), size, best->category, best->grade, best->note, best->hint};
  if (best->orphanBinary && hasBinary && !hasBinary(*best->orphanBinary)) {
    finding.grade = Grade::safe;
    finding.note = "주인 없는 캐시 데이터 — '" + *best->orphanBinary + "' 도구가 삭제되어 더는 쓰이지 않음";
  }
  return finding;
}

std::vector<Finding> subtractDescendants(const std::vector<Finding>& findings) {
  std::vector<Finding> out;
  out.reserve(findings.size());
  for (const Finding& parent : findings) {
    int64_t below = 0;
    for (const Finding& other : findings) {
      if (other.path == parent.path || !isAtOrUnder(other.path, parent.path)) continue;
      // Saturate rather than wrap: no real disk gets near, but a wrapped sum would add bytes.
      if (other.sizeBytes && __builtin_add_overflow(below, *other.sizeBytes, &below))
        below = std::numeric_limits<int64_t>::max();
    }
    Finding reduced = parent;
    if (below >= 1 && parent.sizeBytes) {
      reduced.sizeBytes = std::max<int64_t>(*parent.sizeBytes - below, 0);
      reduced.note += subtractedNoteSuffix;
    }
    out.push_back(std::move(reduced));
  }
  return out;
}

bool isOwnData(std::string_view path) { return isAtOrUnder(path, ownDataDir); }

std::string displayPath(std::string_view path) {
  if (path.starts_with('/')) return std::string(path);
  return "~/" + std::string(path);
}

}  // namespace vorlan
