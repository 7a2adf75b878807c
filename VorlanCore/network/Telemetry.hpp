// Whether anonymous reports may leave the machine at all, and under which identity: the
// back-end configuration (build-time defaults, overridden by the environment), the install id
// file and the consent text. Holds no state of its own; the id file is the only state.
#pragma once
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Version.hpp"
#include "network/Environment.hpp"
#include "network/HttpTransport.hpp"

namespace vorlan::Telemetry {

inline constexpr int64_t schemaVersion = 1;

// Deployment values given to the build; empty in a plain build, which then sends nothing.
extern const std::string_view defaultURL;
extern const std::string_view defaultAnonKey;

inline constexpr std::string_view urlVariable = "VORLAN_TELEMETRY_URL";
inline constexpr std::string_view anonKeyVariable = "VORLAN_TELEMETRY_ANON_KEY";

// What the user agrees to; six lines.
extern const std::string_view consentSummary;

// The id carried by reports whose own id could not be stored.
inline constexpr std::string_view unknownInstallID = "unknown";

inline constexpr std::chrono::seconds sendTimeout{10};

struct Config {
  std::string url;      // trimmed, never empty
  std::string anonKey;  // trimmed, never empty
  bool operator==(const Config&) const = default;
};

// A variable that is present wins over its default even when blank, so that setting it to
// nothing switches reports off. Trims blanks and tabs only: a trailing line feed stays.
std::optional<Config> resolveConfig(const Environment& env, std::string_view defaultURL,
                                    std::string_view defaultAnonKey);

// resolveConfig over the process environment and the built-in defaults, read afresh.
std::optional<Config> currentConfig();

// A back-end is configured. This is not the user's consent; callers test that as well.
bool isEnabled();

// `home`/.vorlan/install_id
std::filesystem::path installIDFile(const std::filesystem::path& home);

// The id stored in `file`, or a new random one written there first. Never fails: an id that
// cannot be stored is "unknown", and the next report tries again.
std::string installID(const std::filesystem::path& file);

// A path inside a user's own folder under /Users or /home: its second component is an account
// name, so such a path never leaves the machine whole.
bool namesUserFolder(std::string_view path);

// A random UUID in canonical lower-case form.
std::string newUUID();

// `baseURL` and "rest/v1/" + `table` with exactly one "/" between them.
std::string tableURL(std::string_view baseURL, std::string_view table);

// Posts one encoded envelope into a REST table of the back-end. True when the table took it
// (status 200 to 299); false on every failure, never an error.
bool postToTable(const Config& config, std::string_view table, const std::string& body,
                 HttpTransport& transport);

}  // namespace vorlan::Telemetry
