// The quarantine store: folders the user chose move, under their home-relative paths, into
// dated batch folders below ~/.vorlan/quarantine, from where they can be restored for seven
// days; expired batches are purged. Every path is checked against the home folder and the
// batch before anything is touched, and nothing is ever overwritten.
#pragma once
#include <cstdint>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "quarantine/FileMover.hpp"
#include "quarantine/QuarantineRecords.hpp"

namespace vorlan {

// A path checked against the home folder.
struct HomePath {
  std::filesystem::path location;  // standardised, links not resolved
  std::string relative;            // normalised, without a leading "/"
  bool operator==(const HomePath&) const = default;
};

struct NewBatchFolder {
  std::filesystem::path location;
  std::string id;
  bool operator==(const NewBatchFolder&) const = default;
};

// A value with no state beyond its two folders: the file system is the store. Operations throw
// QuarantineError, ManifestDecodingError or std::system_error as each one says. Each one first
// checks that the store lies inside the home folder (storeOutsideHome) and reaches it without
// following links; those that change anything hold the store's lock (storeBusy).
struct Quarantine {
  static constexpr int64_t holdSeconds = 7 * 86'400;
  static constexpr std::string_view manifestName = "manifest.json";

  std::filesystem::path root;
  std::filesystem::path home;
  // Test seam for file-system faults; empty in production.
  std::shared_ptr<const FileFaults> faults;
  // How long an operation waits for another one (another process, the app's other task) to
  // let go of the store before it is refused with storeBusy.
  int lockWaitMilliseconds = 3000;

  Quarantine(std::filesystem::path root, std::filesystem::path home,
             std::shared_ptr<const FileFaults> faults = nullptr);

  static std::filesystem::path defaultRoot(const std::filesystem::path& home);
  // UTC "yyyy-MM-dd'T'HHmmss" of `now`: a plain folder name that sorts by time.
  static std::string batchID(int64_t now);

  // outsideHome for an absolute path, one that leaves the home folder or names it, and one
  // that runs through a link leading out of it. The last component is not resolved: a link
  // is an item of its own.
  HomePath resolveInsideHome(std::string_view relative) const;
  // The same checks against a batch folder; outsideBatch.
  static std::filesystem::path resolveInsideBatch(const std::filesystem::path& batchFolder,
                                                  std::string_view relative);
  // outsideQuarantine unless `id` is one plain folder name directly under the root.
  std::filesystem::path resolveBatchDir(std::string_view id) const;
  // Creates the root when missing, then the batch folder exclusively: id, id-2, … id-N.
  // batchIDExhausted carries the id without suffix. `maxAttempts` below 1 counts as 1.
  NewBatchFolder createBatchDirectory(int64_t now, int maxAttempts) const;

  // Moves each home-relative path into one new batch and writes its manifest durably. A path
  // outside the home folder refuses the whole batch before anything moves; a single path that
  // is missing or cannot move lands in `failures`, with its reason in `reasons` when given. A
  // folder with anything mounted inside is not moved. Paths not yet begun when `stop` is
  // requested land in `failures` too, and the batch is written with what did move. When
  // nothing moved, no batch stays behind: the result's id names no folder.
  QuarantineBatch move(const std::vector<std::string>& paths, int64_t now, std::stop_token stop = {},
                       FailureReasons* reasons = nullptr) const;

  // Names under the root, hidden ones left out, ascending; empty when the root can't be read.
  // A name here may be a batch, a folder without a manifest, or a stray file.
  std::vector<std::string> batches() const;
  // batchNotFound when the manifest can't be read; ManifestDecodingError when it can't decode.
  QuarantineBatch manifest(std::string_view id) const;
  // The batches with a readable manifest that speaks for its own folder, ascending.
  std::vector<QuarantineBatch> listBatches() const;

  // Brings each item back unless something stands in its place; removes the batch when it is
  // empty, else rewrites its manifest with what is left. Each item's move is journaled, so a
  // restore cut off is settled by the next operation on the batch.
  RestoreResult restore(std::string_view id) const;
  // Removes a batch folder whole; batchNotFound when nothing is there.
  void purge(std::string_view id) const;
  // Purges the batches whose `expiresEpoch` is at or before `now`. Folders without a readable
  // manifest, or whose manifest names another id, are never touched. Throws only when the
  // store itself is refused.
  ExpireResult expire(int64_t now) const;

  // Folders under the root that `recover` should see: no readable manifest, or one that names
  // another id (left by an interrupted move), or a batch whose restore was cut off.
  std::vector<std::string> orphanedFolders() const;
  // Settles such a folder so that each item is whole in exactly one place. A cut-off move is
  // put back where it came from, never over anything that stands there now; what can't go back
  // becomes a batch of its own, created at `now`. A cut-off restore is finished as far as it
  // had come. A folder without a journal is put back by its layout.
  RecoverResult recover(std::string_view folder, int64_t now) const;
};

}  // namespace vorlan
