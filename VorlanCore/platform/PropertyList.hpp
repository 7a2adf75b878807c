// Property lists (XML or binary) as libplist trees, freed with their owner.
#pragma once
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <plist/plist.h>

namespace vorlan {

struct PlistFree {
  void operator()(plist_t node) const { plist_free(node); }
};
using PlistTree = std::unique_ptr<std::remove_pointer_t<plist_t>, PlistFree>;

// The tree of `bytes` in either form; empty when they do not parse.
PlistTree parsePropertyList(std::string_view bytes);

// The string value under `key` of a dictionary node; absent for any other shape.
std::optional<std::string> plistString(plist_t dict, const char* key);

}  // namespace vorlan
