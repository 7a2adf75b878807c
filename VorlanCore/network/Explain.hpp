// The client of the explain service: picks the plan's rows that may leave the machine (large,
// unknown to the dictionary, with a public reverse-DNS name), renders the exact request for
// the user to read, posts it, and turns the answer into dictionary entries. Knows nothing of
// consent: callers ask first.
#pragma once
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "network/Environment.hpp"
#include "network/HttpTransport.hpp"

namespace vorlan {

// The network seam of the client: the body of a successful POST, or nothing. Never throws.
class ExplainTransport {
 public:
  virtual ~ExplainTransport() = default;
  virtual std::optional<std::string> post(const std::string& json, const std::string& url) = 0;
};

// POST with "Content-Type: application/json" and no other header of the program's own: no key,
// no install id. 120 seconds; status 200 to 299 gives the body.
class HttpExplainTransport final : public ExplainTransport {
 public:
  explicit HttpExplainTransport(HttpTransport& http) : http_(http) {}
  std::optional<std::string> post(const std::string& json, const std::string& url) override;

 private:
  HttpTransport& http_;
};

namespace Explain {

inline constexpr std::string_view path = "/explain";
inline constexpr size_t maxPaths = 40;
// Decimal bytes, as the plan's own threshold.
inline constexpr int64_t minBytes = 50'000'000;
inline constexpr std::string_view endpointVariable = "VORLAN_EXPLAIN_ENDPOINT";
inline constexpr std::chrono::seconds timeout{120};

// The service's origin, given to the build; empty in a plain build, which then asks nobody.
extern const std::string_view defaultEndpoint;

struct Request {
  std::vector<std::string> paths;
  bool operator==(const Request&) const = default;
};

// The variable when present, even empty; else the default.
std::string endpointInForce(const Environment& env);

// Whole paths of the rows that may be sent, sorted, at most maxPaths: not kept, not in use, of
// at least minBytes, unknown to the dictionary, and public by name. The limit cuts the sorted
// list, so it does not favour large folders.
std::vector<std::string> paths(const std::vector<CleanupItem>& items,
                               const KnowledgeDictionary& dictionary);

// {"paths":[...]} compact, slashes as they are; "{}" if it cannot be encoded. This text is
// what fetch sends, byte for byte.
std::string renderRequest(const std::vector<std::string>& paths);

// The service's entries by path, with deletePaths emptied: a remote answer may explain a
// folder but never name what is deleted here. Nothing when there are no paths (no request is
// made), the endpoint is not a web URL, the transport gives nothing or the answer does not
// decode.
std::optional<std::map<std::string, DictEntry>> fetch(const std::vector<std::string>& paths,
                                                      std::string_view endpoint,
                                                      ExplainTransport& transport);

}  // namespace Explain
}  // namespace vorlan
