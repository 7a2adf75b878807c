// The file-system work of the quarantine: moves, copies and removals done through folder
// handles that never follow a symbolic link, with renames that never replace anything.
#pragma once
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace vorlan {

// An open folder, closed when the object goes.
class DirHandle {
 public:
  DirHandle() = default;
  explicit DirHandle(int fd) : fd_(fd) {}
  ~DirHandle();
  DirHandle(DirHandle&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  DirHandle& operator=(DirHandle&& other) noexcept;
  DirHandle(const DirHandle&) = delete;
  DirHandle& operator=(const DirHandle&) = delete;

  int fd() const { return fd_; }

  // By full path, following links on the way: only for the home folder and the quarantine's
  // root, which are trusted. Throws std::system_error.
  static DirHandle open(const std::filesystem::path& folder);

 private:
  int fd_ = -1;
};

// Where tests break the file system on purpose. Production code passes none.
struct FileFaults {
  // Asked before each rename of a move; a non-zero errno value stands in for the rename's
  // failure (EXDEV sends the move down the copy path).
  std::function<int(std::string_view fromName, std::string_view toName)> rename = {};
  // Asked before each block that a copy writes, with the bytes this move wrote so far; a
  // non-zero errno value fails that write.
  std::function<int(int64_t written)> copyWrite = {};
  // Told when a move of `relative` reaches a point: "intent" (journal written, nothing made
  // in the batch yet), "copied" (complete under its temporary name), "placed" (renamed into
  // place, source not yet removed), "moved" (done), and "manifest" (before the manifest is
  // written).
  std::function<void(std::string_view point, std::string_view relative)> checkpoint = {};
};

// Opens `relative` (a normalised path without "..") below `base`, one component at a time,
// refusing any component that is a link. An empty path opens `base` again.
// Throws std::system_error.
DirHandle openBelow(const DirHandle& base, std::string_view relative);
// The same, creating the folders that are missing with `mode`.
DirHandle makeFoldersBelow(const DirHandle& base, std::string_view relative, unsigned mode);

// Whether anything stands at `name`, a dangling link included. An entry that cannot be
// examined counts as there.
bool entryExists(const DirHandle& dir, const std::string& name);

enum class MoveOutcome {
  renamed,           // one rename on one file system
  copied,            // copied across file systems, verified, and the source removed
  copiedSourceLeft,  // copied and verified, but some of the source stayed (it changed after
                     // the copy or could not be removed): nothing is lost, the copy is whole
};

// Moves `fromName` in `from` to `toName` in `to`, never replacing what is there (EEXIST).
// Across file systems the entry is copied to `partialName` beside the target, with modes,
// times and links as links, flushed and verified, renamed into place, and only then is the
// source removed, entry by entry, skipping whatever changed since it was copied. Names of one
// file inside the entry stay names of one file. A copy that fails is removed and leaves the
// source whole. The copy is refused, like a rename would be, when `from` may not be written
// (EACCES), and when anything is mounted inside the entry (EXDEV). `placed` is called once the
// copy is whole under its temporary name, before it takes the target's name and before any of
// the source goes; if it throws, the copy is removed again. Throws std::system_error; then
// nothing moved.
MoveOutcome moveEntry(const DirHandle& from, const std::string& fromName, const DirHandle& to,
                      const std::string& toName, const std::string& partialName,
                      const FileFaults* faults = nullptr, std::string_view label = {},
                      const std::function<void()>& placed = {});

// Removes `name` and all below it without following links. It stops (EXDEV) at the first
// mount point it meets, whatever the device, so nothing mounted there is touched; folders
// without write permission are opened up first. Holds a bounded number of handles however deep
// the tree. Nothing there is fine. Throws std::system_error.
void removeTree(const DirHandle& dir, const std::string& name);

// Removes from `duplicate` what under `duplicateName` is the same as under `keptName` in `kept`:
// files of equal mode and bytes, links with the same target, folders once they are empty. What
// differs stays, and so does anything mounted. Used to finish a move that was cut off while it
// removed its source. Whether `duplicateName` is gone.
bool removeSameAs(const DirHandle& kept, const std::string& keptName, const DirHandle& duplicate,
                  const std::string& duplicateName);

// A fresh name for a copy in progress: ".vorlan-partial-" and random hex.
std::string newPartialName();

// Flushes a folder's entries to the drive; a failure changes nothing that was done.
void syncFolder(const DirHandle& dir) noexcept;

}  // namespace vorlan
