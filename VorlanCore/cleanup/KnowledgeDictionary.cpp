#include "cleanup/KnowledgeDictionary.hpp"

#include <nlohmann/json.hpp>

#include "platform/Utf8Text.hpp"

namespace vorlan {

namespace resources {
// Generated at build time from resources/dictionary.json.
std::string_view bundledDictionaryJson();
}  // namespace resources

namespace {

using Json = nlohmann::json;

// An absent key and an explicit null both take the default, as an optional field would.
template <typename Check>
bool presentWithType(const Json& row, const char* key, Check check, const Json*& out) {
  auto it = row.find(key);
  if (it == row.end() || it->is_null()) {
    out = nullptr;
    return true;
  }
  out = &*it;
  return check(*it);
}

bool readText(const Json& row, const char* key, std::string& target) {
  const Json* value = nullptr;
  if (!presentWithType(row, key, [](const Json& v) { return v.is_string(); }, value)) return false;
  if (value) target = value->get<std::string>();
  return true;
}

std::optional<DictEntry> decodeRow(const Json& row) {
  if (!row.is_object()) return std::nullopt;
  DictEntry entry;
  if (!readText(row, "app", entry.app) || !readText(row, "what", entry.what) ||
      !readText(row, "risk", entry.risk))
    return std::nullopt;

  std::string grade;
  if (!readText(row, "grade", grade)) return std::nullopt;
  // Only the exact upper-case names count; anything else is simply not known.
  entry.grade = gradeFromRaw(grade).value_or(Grade::unknown);

  const Json* value = nullptr;
  if (!presentWithType(row, "regenerates", [](const Json& v) { return v.is_boolean(); }, value))
    return std::nullopt;
  if (value) entry.regenerates = value->get<bool>();

  if (!presentWithType(row, "deletePaths", [](const Json& v) { return v.is_array(); }, value))
    return std::nullopt;
  if (value) {
    for (const Json& item : *value) {
      if (!item.is_string()) return std::nullopt;
      entry.deletePaths.push_back(item.get<std::string>());
    }
  }
  return entry;
}


}  // namespace

std::optional<std::map<std::string, DictEntry>> KnowledgeDictionary::decodeEntries(
    std::string_view json) {
  Json document = Json::parse(json, nullptr, /*allow_exceptions=*/false);
  if (document.is_discarded() || !document.is_object()) return std::nullopt;
  auto rows = document.find("entries");
  if (rows == document.end() || !rows->is_object()) return std::nullopt;

  std::map<std::string, DictEntry> entries;
  for (const auto& [key, row] : rows->items()) {
    auto entry = decodeRow(row);
    if (!entry) return std::nullopt;
    entries.insert_or_assign(key, std::move(*entry));
  }
  return entries;
}

KnowledgeDictionary KnowledgeDictionary::bundled() {
  // The embedded bytes never change during a run, so they are decoded once.
  static const KnowledgeDictionary shipped{
      decodeEntries(resources::bundledDictionaryJson()).value_or(std::map<std::string, DictEntry>{})};
  return shipped;
}

std::optional<DictEntry> KnowledgeDictionary::lookup(std::string_view path) const {
  const DictEntry* best = nullptr;
  size_t bestLength = 0;
  for (const auto& [key, entry] : entries) {
    bool matches = path == key || (path.size() > key.size() && path.starts_with(key) &&
                                   path[key.size()] == '/');
    if (!matches) continue;
    size_t length = codePointCount(key);
    if (!best || length > bestLength) {
      best = &entry;
      bestLength = length;
    }
  }
  if (!best) return std::nullopt;
  return *best;
}

}  // namespace vorlan
