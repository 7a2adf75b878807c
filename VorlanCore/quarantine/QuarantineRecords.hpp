// The quarantine's records: a batch and its items as its manifest holds them, the outcomes of
// restoring, expiring and recovering, and the errors the store raises.
#pragma once
#include <cstdint>
#include <map>
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

  // Within two days of being emptied: the list and the panel warn of it.
  bool expiresSoon(int64_t now) const { return expiresEpoch - 48 * 3600 <= now; }
};

// Relative path → one Korean sentence saying why it stayed where it was.
using FailureReasons = std::map<std::string, std::string>;

struct RestoreResult {
  std::vector<std::string> restored;  // `original` of each item brought back, manifest order
  std::vector<std::string> failed;    // `original` of each item left in the batch
  FailureReasons reasons;             // for each of `failed`
  bool operator==(const RestoreResult&) const = default;
};

struct ExpireResult {
  std::vector<std::string> purged;  // ids, ascending
  std::vector<std::string> failed;  // ids of expired batches that could not be removed
  FailureReasons reasons;           // why, for each of `failed`
  bool operator==(const ExpireResult&) const = default;
};

// What `recover` did with one batch folder that has no readable manifest.
enum class RecoverState {
  emptied,   // everything went back; the folder is gone
  leftOver,  // some entries stayed (listed in `kept`); the folder stays
  keptAsBatch,  // what could not go back is now a batch of its own, listed and restorable
  busy,      // a living process is still filling this folder: untouched
  notOrphan  // the folder has a readable manifest and no restore to finish: untouched
};

struct RecoverResult {
  std::string folder;
  RecoverState state = RecoverState::leftOver;
  std::vector<std::string> restored;  // home-relative paths back in place
  std::vector<std::string> kept;      // paths that stayed in the folder
  FailureReasons reasons;             // why, for those that went through a restore
  bool operator==(const RecoverResult&) const = default;
};

enum class QuarantineErrorKind {
  outsideHome,
  outsideQuarantine,
  batchNotFound,
  batchIDExhausted,
  outsideBatch,
  storeOutsideHome,  // the store (~/.vorlan or its quarantine) leads out of the home folder
  storeBusy,         // another operation holds the store
};

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
// execution's error line. No system text in English ever shows.
std::string describeQuarantineFailure(const std::exception& error);
// Why one item stayed where it was, as a sentence of its own.
std::string describeItemProblem(const std::exception& error);

// Sums of byte counts that stop at the largest value instead of wrapping; a negative count, as
// a crafted manifest may hold, adds nothing.
int64_t addBytes(int64_t total, int64_t more);

}  // namespace vorlan
