// The quarantine's records: a batch and its items as its manifest holds them, the outcomes of
// restoring, expiring and recovering, and the errors the store raises.
#pragma once
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace vorlan {

struct QuarantineItem {
  std::string original;  // home-relative, normalised, no leading "/"
  std::string stored;    // relative to the batch's folder; `move` writes the same as `original`
  int64_t bytes = 0;     // allocated size when it was moved
  bool operator==(const QuarantineItem&) const = default;
};

struct QuarantineBatch {
  std::string id;  // equals the batch folder's name
  int64_t createdEpoch = 0;
  int64_t expiresEpoch = 0;  // createdEpoch + seven days
  std::vector<QuarantineItem> items;  // still in the batch
  std::vector<std::string> failures;  // relative paths that could not be moved
  bool operator==(const QuarantineBatch&) const = default;
};

struct RestoreResult {
  std::vector<std::string> restored;  // `original` of each item brought back, manifest order
  std::vector<std::string> failed;    // `original` of each item left in the batch
  bool operator==(const RestoreResult&) const = default;
};

struct ExpireResult {
  std::vector<std::string> purged;  // ids, ascending
  std::vector<std::string> failed;  // ids of expired batches that could not be removed
  bool operator==(const ExpireResult&) const = default;
};

// What `recover` did with one batch folder that has no readable manifest.
enum class RecoverState {
  emptied,   // everything went back; the folder is gone
  leftOver,  // some entries stayed (listed in `kept`); the folder stays
  busy,      // a living process is still filling this folder: untouched
  notOrphan  // the folder has a readable manifest: it is a batch, untouched
};

struct RecoverResult {
  std::string folder;
  RecoverState state = RecoverState::leftOver;
  std::vector<std::string> restored;  // home-relative paths back in place
  std::vector<std::string> kept;      // batch-relative paths that stayed in the folder
  bool operator==(const RecoverResult&) const = default;
};

enum class QuarantineErrorKind { outsideHome, outsideQuarantine, batchNotFound, batchIDExhausted, outsideBatch };

std::string_view rawValue(QuarantineErrorKind kind);
std::optional<QuarantineErrorKind> quarantineErrorKindFromRaw(std::string_view raw);

// The store's own refusals; each carries the path or id as it was given.
class QuarantineError : public std::runtime_error {
 public:
  QuarantineError(QuarantineErrorKind kind, std::string value);
  QuarantineErrorKind kind() const { return kind_; }
  const std::string& value() const { return value_; }

 private:
  QuarantineErrorKind kind_;
  std::string value_;
};

// A manifest that is not JSON, lacks one of its keys or holds a value of the wrong type.
class ManifestDecodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Pretty-printed UTF-8 JSON with keys sorted at every level, ending in a newline.
std::string encodeManifest(const QuarantineBatch& batch);
// Every key of the batch and of each item is required. Throws ManifestDecodingError.
QuarantineBatch decodeManifest(std::string_view json);

// Korean words for a failure of the store or of the file system, for the command line and the
// execution's error line.
std::string describeQuarantineFailure(const std::exception& error);

}  // namespace vorlan
