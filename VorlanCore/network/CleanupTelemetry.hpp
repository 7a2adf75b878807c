// Cleanup events: what the user did with the plan and the quarantine, as anonymous rows of the
// back-end's table "cleanup_events". Holds the one privacy test for folder names,
// isPublicIdentifier, which the explain client uses as its filter too.
#pragma once
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cleanup/CleanupPlan.hpp"
#include "cleanup/KnowledgeDictionary.hpp"
#include "network/HttpTransport.hpp"
#include "network/Telemetry.hpp"

namespace vorlan::Telemetry {

inline constexpr std::string_view cleanupEventsTable = "cleanup_events";

// The events and who sends them.
namespace CleanupEventName {
inline constexpr std::string_view deleted = "deleted";
inline constexpr std::string_view purgedImmediate = "purged_immediate";
inline constexpr std::string_view unchecked = "unchecked";
inline constexpr std::string_view expired = "expired";
inline constexpr std::string_view purged = "purged";
inline constexpr std::string_view restored = "restored";
}  // namespace CleanupEventName

struct CleanupEventItem {
  std::string path;  // whole when public, else "<masked-N>"
  int64_t bytes = 0;
  std::string verdict;  // the verdict's wire word: "orphan" … "in_use" … "unknown"
  bool checked = false;
  bool operator==(const CleanupEventItem&) const = default;
};

struct CleanupEvent {
  int64_t schemaVersion = Telemetry::schemaVersion;
  std::string installId;
  std::string appVersion{Telemetry::appVersion};
  std::string event;
  std::vector<CleanupEventItem> items;
  bool operator==(const CleanupEvent&) const = default;
};

// The last non-empty component of `path` begins with two dot-terminated labels of ASCII
// letters, digits and hyphens (com.vendor.app), or the dictionary knows the whole path.
// A path inside a user's folder under /Users or /home is never public.
bool isPublicIdentifier(std::string_view path, const KnowledgeDictionary& dictionary);

// `path` whole when public; else "<masked-N>" with `counter` counted up first.
std::string maskCleanupPath(std::string_view path, const KnowledgeDictionary& dictionary,
                            int64_t& counter);

// Masks are numbered from 1 within each event. Reads the id file under `home` unless
// `install` is given.
CleanupEvent buildCleanupEvent(std::string_view event, const std::vector<CleanupItem>& items,
                               const KnowledgeDictionary& dictionary,
                               std::optional<std::string> install,
                               const std::filesystem::path& home);

// The exact request body: {"payload":{...}}, compact, slashes escaped as "\/".
std::string encodeCleanupEnvelope(const CleanupEvent& event);

// Posts the event when a back-end is configured; true when the table took it.
bool sendCleanupEvent(const CleanupEvent& event, HttpTransport& transport,
                      const std::optional<Config>& config = currentConfig());

}  // namespace vorlan::Telemetry
