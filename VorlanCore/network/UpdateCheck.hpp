// The check at start whether a newer version is published: fetches the small manifest
// "/version.json" of the configured site and compares dotted versions. Never downloads or
// installs anything; only an https link ever reaches the user.
#pragma once
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "network/Environment.hpp"
#include "network/HttpTransport.hpp"

namespace vorlan {

struct UpdateInfo {
  std::string version;  // the manifest's version, unchanged
  std::string url;      // an absolute https URL
  bool operator==(const UpdateInfo&) const = default;
};

// The network seam of the check: the body of a successful GET, or nothing. Never throws.
class UpdateTransport {
 public:
  virtual ~UpdateTransport() = default;
  virtual std::optional<std::string> get(const std::string& url) = 0;
};

// GET with no header of the program's own, 10 seconds, status 200 to 299 gives the body.
class HttpGetTransport final : public UpdateTransport {
 public:
  explicit HttpGetTransport(HttpTransport& http) : http_(http) {}
  std::optional<std::string> get(const std::string& url) override;

 private:
  HttpTransport& http_;
};

namespace UpdateCheck {

// The site's origin, given to the build; empty in a plain build, which then asks nobody.
extern const std::string_view defaultEndpoint;
inline constexpr std::string_view path = "/version.json";
inline constexpr std::string_view endpointVariable = "VORLAN_UPDATE_ENDPOINT";
inline constexpr std::chrono::seconds timeout{10};

struct Manifest {
  std::string version;
  std::string url;
  bool operator==(const Manifest&) const = default;
};

// Both keys present as strings; other keys are ignored.
std::optional<Manifest> decodeManifest(std::string_view json);

// The variable when present, even empty (that switches the check off); else the default.
std::string endpointInForce(const Environment& env);

// An UpdateInfo only when the manifest names a newer version than `current` and an https link.
// A blank endpoint makes no request.
std::optional<UpdateInfo> check(std::string_view current, std::string_view endpoint,
                                UpdateTransport& transport);

// Dotted versions compared number by number, the shorter padded with zeros. A version that
// cannot be read is never newer, in either place.
bool isNewer(std::string_view candidate, std::string_view current);

// "1.2.3" → [1, 2, 3]. Nothing for an empty text, an empty piece, a piece that is not a
// decimal number fitting 64 bits, or a negative piece ("-0" counts as 0).
std::optional<std::vector<int64_t>> components(std::string_view version);

}  // namespace UpdateCheck
}  // namespace vorlan
