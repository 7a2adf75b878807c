// Turns a measured path into a graded Finding by the rule table, keeps measured children out
// of their measured parents, and recognises the program's own data folder.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/ScanRecords.hpp"
#include "scan/ToolRunning.hpp"

namespace vorlan {

// The folder directly below the home folder that holds all of the program's own state.
inline constexpr std::string_view ownDataDir = ".vorlan";

inline constexpr std::string_view unclassifiedCategory = "미분류";
inline constexpr std::string_view unclassifiedNote = "규칙에 없는 항목 — 직접 확인 필요";
inline constexpr std::string_view subtractedNoteSuffix = " (측정된 하위 항목 제외)";

// True when `path` is `base` itself or lies below it. Paths relate only at "/" borders:
// "Library/Cachesfoo" is not under "Library/Caches".
bool isAtOrUnder(std::string_view path, std::string_view base);

// Grades `path` by the longest fitting rule (length in characters). `hasBinary` is asked only
// when the fitting rule names an owning tool (an empty callback keeps the rule's grade);
// `size` is carried through untouched.
Finding classify(std::string_view path, std::optional<int64_t> size, const HasBinary& hasBinary);

// Same length and order; each finding with a size loses the sizes of the findings below it
// (never below 0), and its note says so. Always computed from the input's own sizes.
std::vector<Finding> subtractDescendants(const std::vector<Finding>& findings);

// The program's own folder (".vorlan" or anything in it), which a scan must not report.
bool isOwnData(std::string_view path);

// A path as the user sees it: "~/" before a home-relative path, an absolute one as it is.
std::string displayPath(std::string_view path);

}  // namespace vorlan
