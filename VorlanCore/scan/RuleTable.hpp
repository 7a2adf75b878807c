// The built-in table of 90 known locations: where things live on a developer's machine,
// what they are, how safe they are to remove and what to do about them.
#pragma once
#include <optional>
#include <string>
#include <vector>

#include "scan/ScanRecords.hpp"

namespace vorlan {

struct Rule {
  std::string subpath;  // home-relative without "~/", or absolute; never a trailing "/"
  std::string category;
  Grade grade = Grade::unknown;
  std::string note;
  std::string hint;  // may be empty
  // A tool whose removal leaves this location without an owner.
  std::optional<std::string> orphanBinary;
  bool operator==(const Rule&) const = default;
};

// All rows in table order; the order is the order in which a scan measures them.
const std::vector<Rule>& rules();

}  // namespace vorlan
