// What the program knows about individual folders under the home folder, from the data file
// compiled into the library: owner, contents, grade, whether it comes back, and the risk.
#pragma once
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "scan/ScanRecords.hpp"

namespace vorlan {

struct DictEntry {
  std::string app;                       // empty when not known
  std::string what;                      // one line for the user
  Grade grade = Grade::unknown;
  std::vector<std::string> deletePaths;  // narrower paths; empty when the whole folder is meant
  std::string risk;                      // empty when deleting costs nothing known
  bool regenerates = false;              // the owner rebuilds the folder by itself
  bool operator==(const DictEntry&) const = default;
};

// Keys are home-relative paths exactly as written in the file; an entry covers what lies below
// its key too. Read-only once built.
struct KnowledgeDictionary {
  std::map<std::string, DictEntry> entries;

  KnowledgeDictionary() = default;
  explicit KnowledgeDictionary(std::map<std::string, DictEntry> entries)
      : entries(std::move(entries)) {}

  // The dictionary shipped with the program. Never fails: a file that does not decode gives an
  // empty dictionary.
  static KnowledgeDictionary bundled();

  // The rows of a JSON document, or nothing when any part of it is malformed: one bad row
  // costs the whole document.
  static std::optional<std::map<std::string, DictEntry>> decodeEntries(std::string_view json);

  // The entry of the longest key that equals `path` or lies above it at a "/" border.
  std::optional<DictEntry> lookup(std::string_view path) const;

  bool operator==(const KnowledgeDictionary&) const = default;
};

}  // namespace vorlan
