#include "quarantine/Quarantine.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fmt/format.h>
#include <functional>
#include <optional>
#include <set>
#include <system_error>

#include "platform/UsageMeasurement.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/FileReading.hpp"
#include "platform/Utf8Text.hpp"
#include "platform/MountPoints.hpp"
#include "quarantine/MoveJournal.hpp"
#include "quarantine/StoreLock.hpp"

// How a move survives being killed at any instant.
//
// A batch folder mirrors the home folder: an item from `Library/Caches/x` lies at
// `<batch>/Library/Caches/x`, and the manifest, written last, is what makes the folder a batch.
// Before that, the folder holds a journal (MoveJournal): before each item moves, one line
// naming its home path, its batch path and the temporary name a copy across file systems
// would use is appended and flushed. The move itself is one exclusive rename, or a copy under
// the temporary name; once that copy is whole a second line says "placed", then the copy takes
// its name and the source is removed. So at any instant each journal line's item is in one of
// these states:
//   - whole at home, perhaps with an incomplete temporary copy in the batch;
//   - whole in the batch (renamed, or placed and its source gone);
//   - placed: whole in the batch, with what is left of its source at home, a part of the copy.
// `recover` deletes temporary copies and removes from home what is left of a placed source
// where it equals the copy, so that each item is whole in exactly one place; the items in the
// batch then get a manifest and are restored at once, never over anything that stands at home
// now. What can't go back stays a batch of its own, listed and restorable. A journal line cut
// short by the crash belongs to a move that never began. A folder without a journal at all is
// read by its layout instead: each entry goes back when its home place is free.
//
// A restore is journaled the same way, in ".vorlan-restore-journal" beside the manifest, with
// the temporary copies at home. Whatever next touches the batch (restore, purge, expire,
// recover) first settles a restore that was cut off: temporary copies at home go, what is left
// in the batch of a placed item goes where it equals the item at home, and the manifest is
// rewritten with the items still in the batch.
//
// Every operation reaches the store from the home folder without following links and refuses
// one that leads out of it; those that change anything hold the store's lock (StoreLock), so
// two runs never move the same folder at once. Nothing mounted, whatever its device, is moved
// or removed: a folder with a mount point inside stays home, and removals stop at one.

namespace vorlan {
namespace {

constexpr std::string_view kPartialPrefix = ".vorlan-partial-";
constexpr std::string_view kManifestTempPrefix = ".manifest.json.tmp-";

std::string standardize(std::string_view absolutePath) {
  std::vector<std::string_view> parts;
  size_t start = 0;
  while (start <= absolutePath.size()) {
    size_t end = absolutePath.find('/', start);
    if (end == std::string_view::npos) end = absolutePath.size();
    std::string_view part = absolutePath.substr(start, end - start);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    start = end + 1;
  }
  std::string out;
  for (auto part : parts) {
    out += '/';
    out += part;
  }
  return out.empty() ? "/" : out;
}

std::string prefixOf(const std::string& base) { return base == "/" ? base : base + "/"; }

bool isBelow(const std::string& path, const std::string& base) {
  const std::string prefix = prefixOf(base);
  return path.size() > prefix.size() && path.compare(0, prefix.size(), prefix) == 0;
}

std::string parentOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {};
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string lastComponent(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string joinRelative(const std::string& folder, const std::string& name) {
  return folder.empty() ? name : folder + "/" + name;
}

// Links resolved as far as the path exists, the rest kept as written; empty when the path
// can't be examined, which every caller takes as a refusal.
std::string resolveLinks(const std::string& path) {
  std::error_code ec;
  auto resolved = std::filesystem::weakly_canonical(path, ec);
  if (ec) return {};
  return standardize(resolved.string());
}

std::string standardBase(const std::filesystem::path& base) {
  return standardize(std::filesystem::absolute(base).string());
}

// The standardised location of `relative` below `base`, refused as `kind` when it leaves the
// base, names the base itself, or its parent resolves through a link to outside the base.
std::string checkInside(const std::filesystem::path& base, std::string_view relative, QuarantineErrorKind kind) {
  auto refuse = [&]() -> std::string { throw QuarantineError(kind, std::string(relative)); };
  if (relative.find('\0') != std::string_view::npos) return refuse();
  const std::string stdBase = standardBase(base);
  // Joined as text: a relative path that starts with "/" still stays below the base.
  const std::string joined = standardize(stdBase + "/" + std::string(relative));
  if (!isBelow(joined, stdBase)) return refuse();
  const std::string realBase = resolveLinks(stdBase);
  const std::string realParent = resolveLinks(parentOf(joined));
  if (realBase.empty() || realParent.empty()) return refuse();
  if (realParent != realBase && !isBelow(realParent, realBase)) return refuse();
  return joined;
}

// Where a checked location lies below its base with the links of its parent resolved, so that
// the folders can be opened one by one without following any link: a link swapped in after
// the check makes the open fail instead of leading elsewhere.
struct Placement {
  std::string parent;  // relative to the resolved base; empty for the base itself
  std::string name;
};

std::optional<Placement> placeBelow(const std::string& stdBase, const std::string& location) {
  const std::string realBase = resolveLinks(stdBase);
  const std::string realParent = resolveLinks(parentOf(location));
  if (realBase.empty() || realParent.empty()) return std::nullopt;
  Placement placement{{}, lastComponent(location)};
  if (realParent == realBase) return placement;
  if (!isBelow(realParent, realBase)) return std::nullopt;
  placement.parent = realParent.substr(prefixOf(realBase).size());
  return placement;
}

// ASCII letters without case: on a file system that ignores case (the Mac's default),
// "Manifest.json" and "manifest.json" are one entry.
bool sameLetters(std::string_view a, std::string_view b) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) { return lower(x) == lower(y); });
}

// Names at the top of a batch folder that belong to the store itself. An item whose path
// begins with one of them would collide with the store's own files, so it is not moved: the
// manifest, written after the moves, would otherwise replace a user's "Manifest.json" on a
// file system that ignores case.
bool isOwnTopName(std::string_view name) {
  return sameLetters(name, Quarantine::manifestName) || sameLetters(name, MoveJournal::fileName) ||
         sameLetters(name.substr(0, kManifestTempPrefix.size()), kManifestTempPrefix);
}

bool isReservedInBatch(const std::string& relative) {
  return isOwnTopName(relative.substr(0, relative.find('/')));
}

// Whether a resolved home path is the quarantine, lies in it, or holds it. Nothing is moved
// from there, and nothing is put back there: an item "restored" into a batch folder would be
// deleted with that batch.
bool overlapsStore(const std::string& realPath, const std::string& realRoot) {
  return realRoot.empty() || realPath == realRoot || isBelow(realRoot, realPath) || isBelow(realPath, realRoot);
}

std::string realPathOf(const std::string& stdBase, const Placement& placement) {
  return joinRelative(resolveLinks(stdBase), joinRelative(placement.parent, placement.name));
}


bool isRealFolderAt(int dirfd, const std::string& name) {
  struct stat st;
  return ::fstatat(dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

std::vector<std::string> namesIn(const DirHandle& dir) {
  std::vector<std::string> names;
  int copy = ::fcntl(dir.fd(), F_DUPFD_CLOEXEC, 0);
  if (copy < 0) return names;
  DIR* listing = ::fdopendir(copy);
  if (!listing) {
    ::close(copy);
    return names;
  }
  ::rewinddir(listing);
  while (dirent* entry = ::readdir(listing)) {
    std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(listing);
  std::sort(names.begin(), names.end());
  return names;
}

void checkpoint(const FileFaults* faults, std::string_view point, std::string_view relative) {
  if (faults && faults->checkpoint) faults->checkpoint(point, relative);
}

// Removes a batch folder with its manifest last. A removal that fails partway (a folder the
// user may not delete, too deep a tree) then leaves a batch that is still listed and that the
// next sweep tries again, rather than a folder without a manifest, which no sweep touches and
// which recover would put back into the home folder half deleted.
void removeBatchFolder(const DirHandle& rootDir, const std::string& name) {
  if (isRealFolderAt(rootDir.fd(), name)) {
    std::optional<DirHandle> batch;
    try {
      batch = openBelow(rootDir, name);
    } catch (const std::system_error&) {
      // Unreadable: removeTree below opens it up, as it does for any folder of ours.
    }
    if (batch)
      for (const auto& child : namesIn(*batch))
        if (child != Quarantine::manifestName) removeTree(*batch, child);
  }
  removeTree(rootDir, name);
}


int errorOf(const std::system_error& error) { return error.code().value(); }

// A reason in the user's words for an item that stays where it is.
class ItemRefusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

std::string reasonFor(const std::exception& error) {
  if (dynamic_cast<const ItemRefusal*>(&error)) return error.what();
  return describeItemProblem(error);
}

// The store opened for one operation: the lock when it is taken, the home folder, and the
// quarantine's root reached from the home folder without following any link.
struct OpenStore {
  StoreLock lock;
  DirHandle home;
  DirHandle root;
};

// Every operation goes through here before it reads, makes, moves or deletes anything: a store
// whose folders lead out of the home folder (or a home that is the root folder) is refused.
// Empty when there is no store yet and `create` is false.
std::optional<OpenStore> openStore(const Quarantine& q, bool create, bool lock) {
  const std::string realHome = resolveLinks(standardBase(q.home));
  const std::string realRoot = resolveLinks(standardBase(q.root));
  auto refuse = [&] { return QuarantineError(QuarantineErrorKind::storeOutsideHome, q.root.string()); };
  if (realHome.empty() || realHome == "/" || realRoot.empty() || !isBelow(realRoot, realHome)) throw refuse();
  const std::string relative = realRoot.substr(prefixOf(realHome).size());
  const std::string name = lastComponent(relative);
  OpenStore store;
  store.home = DirHandle::open(realHome);
  try {
    DirHandle holder = create ? makeFoldersBelow(store.home, parentOf(relative), 0700)
                              : openBelow(store.home, parentOf(relative));
    if (lock) store.lock = StoreLock::acquire(holder, q.lockWaitMilliseconds);
    if (create && ::mkdirat(holder.fd(), name.c_str(), 0700) != 0 && errno != EEXIST)
      throw std::system_error(errno, std::generic_category(), q.root.string());
    store.root = openBelow(holder, name);
  } catch (const std::system_error& error) {
    if (!create && errorOf(error) == ENOENT) return std::nullopt;
    // A link (dangling, or swapped in since the check) or a file where a folder of the store
    // should be.
    if (errorOf(error) == ELOOP || errorOf(error) == ENOTDIR) throw refuse();
    throw;
  }
  return store;
}

// The store, locked, for an operation on one batch; batchNotFound when there is no store.
OpenStore openStoreFor(const Quarantine& q, const std::string& id) {
  auto store = openStore(q, false, true);
  if (!store) throw QuarantineError(QuarantineErrorKind::batchNotFound, id);
  return std::move(*store);
}

// A batch folder directly below the root, never reached through a link.
DirHandle openBatch(const DirHandle& root, const std::string& id) {
  try {
    return openBelow(root, id);
  } catch (const std::system_error& error) {
    if (errorOf(error) == ENOENT || errorOf(error) == ENOTDIR || errorOf(error) == ELOOP)
      throw QuarantineError(QuarantineErrorKind::batchNotFound, id);
    throw;
  }
}

QuarantineBatch manifestIn(const DirHandle& batch, const std::string& id) {
  auto text = readRegularFileAt(batch.fd(), std::string(Quarantine::manifestName));
  if (!text) throw QuarantineError(QuarantineErrorKind::batchNotFound, id);
  return decodeManifest(*text);
}

void writeManifest(const DirHandle& batch, const QuarantineBatch& manifest) {
  writeFileAtomicallyAt(batch.fd(), std::string(Quarantine::manifestName), encodeManifest(manifest));
}

NewBatchFolder createBatchIn(const DirHandle& rootDir, const std::filesystem::path& root, int64_t now,
                             int maxAttempts) {
  const std::string base = Quarantine::batchID(now);
  const int attempts = std::max(maxAttempts, 1);
  for (int n = 1; n <= attempts; ++n) {
    std::string id = n == 1 ? base : fmt::format("{}-{}", base, n);
    // The exclusive creation is what keeps ids unique, also between two processes.
    if (::mkdirat(rootDir.fd(), id.c_str(), 0700) == 0) return {root / id, id};
    if (errno != EEXIST) throw std::system_error(errno, std::generic_category(), id);
  }
  throw QuarantineError(QuarantineErrorKind::batchIDExhausted, base);
}

bool partialExists(const DirHandle& base, const std::string& partial) {
  try {
    return entryExists(openBelow(base, parentOf(partial)), lastComponent(partial));
  } catch (const std::system_error&) {
    return false;
  }
}

// The temporary copy a journal line names, when it is one of ours: what a kill left of it goes.
void removePartial(const DirHandle& base, const std::string& partial) {
  const std::string name = lastComponent(partial);
  if (!name.starts_with(kPartialPrefix)) return;
  try {
    removeTree(openBelow(base, parentOf(partial)), name);
  } catch (const std::system_error&) {
    // Its folder is gone or can't be entered: there is no copy to remove.
  }
}

// Settles one journaled move after a kill. The unfinished copy goes; when the copy had been
// whole (placed) and is no longer under its temporary name, it took its place and what is left
// of the source is removed where it equals the copy. Whether the source is gone afterwards.
bool settleMove(const JournalEntry& entry, const DirHandle& copyBase, const DirHandle& fromDir,
                const std::string& fromName, const std::function<DirHandle()>& copyFolder,
                const std::string& copyName) {
  const bool partialThere = partialExists(copyBase, entry.partial);
  removePartial(copyBase, entry.partial);
  if (!entryExists(fromDir, fromName)) return true;
  if (!entry.placed || partialThere) return false;
  try {
    return removeSameAs(copyFolder(), copyName, fromDir, fromName);
  } catch (const std::system_error&) {
    return false;
  }
}

// Finishes a restore of `id` that was cut off, so that each item it had begun is whole in one
// place and the manifest lists exactly those still in the batch; `back` gets the others. False
// when that left the batch without items, and so removed it.
bool settleRestore(const Quarantine& q, const OpenStore& store, const DirHandle& batchDir, const std::string& id,
                   std::vector<std::string>* back = nullptr) {
  MoveJournal journal;
  const auto opening = MoveJournal::openExisting(batchDir, journal, MoveJournal::restoreFileName);
  if (opening == MoveJournal::Opening::missing) {
    // A pipe or link under the journal's name was not written by this program, and would keep
    // the next restore from writing its journal.
    ::unlinkat(batchDir.fd(), std::string(MoveJournal::restoreFileName).c_str(), 0);
    return true;
  }
  if (opening == MoveJournal::Opening::busy) throw QuarantineError(QuarantineErrorKind::storeBusy, id);
  QuarantineBatch batch = manifestIn(batchDir, id);
  const std::string stdHome = standardBase(q.home);
  const std::string stdBatch = standardBase(q.root) + "/" + id;
  std::set<std::string> seen, gone;
  const auto entries = journal.entries();
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    if (!seen.insert(it->stored).second) continue;
    try {
      // Read back as warily as a manifest.
      const std::string source = Quarantine::resolveInsideBatch(stdBatch, it->stored);
      const HomePath target = q.resolveInsideHome(it->original);
      auto from = placeBelow(stdBatch, source);
      auto to = placeBelow(stdHome, target.location.string());
      if (!from || !to) continue;
      auto homeFolder = [&] { return openBelow(store.home, to->parent); };
      if (settleMove(*it, store.home, openBelow(batchDir, from->parent), from->name, homeFolder, to->name))
        gone.insert(it->stored);
    } catch (const std::exception&) {
      // The item stays listed as it is.
    }
  }
  std::vector<QuarantineItem> left;
  for (auto& item : batch.items) {
    if (!gone.contains(item.stored))
      left.push_back(item);
    else if (back)
      back->push_back(item.original);
  }
  if (left.empty()) {
    removeBatchFolder(store.root, id);
    return false;
  }
  batch.items = std::move(left);
  writeManifest(batchDir, batch);
  ::unlinkat(batchDir.fd(), std::string(MoveJournal::restoreFileName).c_str(), 0);
  return true;
}

bool hasRestoreJournal(const DirHandle& batchDir) {
  const int fd = openRegularFileAt(batchDir.fd(), std::string(MoveJournal::restoreFileName), O_RDONLY);
  if (fd < 0) return false;
  ::close(fd);
  return true;
}

// Why an original path is refused, in the user's words.
ItemRefusal homeRefusal(const Quarantine& q, const std::string& original) {
  const std::string stdHome = standardBase(q.home);
  if (original.starts_with('/') || !isBelow(standardize(stdHome + "/" + original), stdHome))
    return ItemRefusal("홈 폴더 밖을 가리키는 경로라서 되돌리지 않았습니다");
  return ItemRefusal("홈 폴더 밖으로 이어지는 링크를 거치는 경로라서 되돌리지 않았습니다");
}

RestoreResult restoreIn(const Quarantine& q, const OpenStore& store, const std::string& id) {
  const DirHandle batchDir = openBatch(store.root, id);
  if (!settleRestore(q, store, batchDir, id)) return {};
  QuarantineBatch batch = manifestIn(batchDir, id);
  const std::string stdHome = standardBase(q.home);
  const std::string stdBatch = standardBase(q.root) + "/" + id;
  const std::string realRoot = resolveLinks(standardBase(q.root));
  MoveJournal journal = MoveJournal::create(batchDir, MoveJournal::restoreFileName);
  bool journalUsable = true;

  RestoreResult result;
  std::vector<QuarantineItem> remaining;
  for (const auto& item : batch.items) {
    try {
      if (!journalUsable) throw ItemRefusal("보관함에 기록을 남길 수 없어 되돌리지 않았습니다");
      const std::string source = Quarantine::resolveInsideBatch(stdBatch, item.stored);
      HomePath target;
      try {
        target = q.resolveInsideHome(item.original);
      } catch (const QuarantineError&) {
        throw homeRefusal(q, item.original);
      }
      auto from = placeBelow(stdBatch, source);
      auto to = placeBelow(stdHome, target.location.string());
      if (!from || !to || isReservedInBatch(source.substr(prefixOf(stdBatch).size())))
        throw QuarantineError(QuarantineErrorKind::outsideBatch, item.stored);
      if (overlapsStore(realPathOf(stdHome, *to), realRoot))
        throw ItemRefusal("Vorlan의 보관 폴더 안을 가리키는 경로라서 되돌리지 않았습니다");
      DirHandle fromDir = openBelow(batchDir, from->parent);
      if (!entryExists(fromDir, from->name)) throw ItemRefusal("보관함에 그 항목이 없습니다");
      // Occupied by anything at all, a dangling link included: the item stays. The exclusive
      // rename below decides again, in case something appears in between.
      bool occupied = false;
      try {
        occupied = entryExists(openBelow(store.home, to->parent), to->name);
      } catch (const std::system_error&) {
        // Its folder is gone: the place is free, and the folder is made again below.
      }
      if (occupied) throw std::system_error(EEXIST, std::generic_category(), item.original);
      DirHandle toDir = makeFoldersBelow(store.home, to->parent, 0777);
      const std::string partial = newPartialName();
      try {
        journal.append({item.original, item.stored, joinRelative(to->parent, partial)});
      } catch (const std::system_error&) {
        journalUsable = false;
        throw;
      }
      moveEntry(fromDir, from->name, toDir, to->name, partial, q.faults.get(), item.original,
                [&] { journal.markPlaced(item.stored); });
      result.restored.push_back(item.original);
    } catch (const std::exception& error) {
      remaining.push_back(item);
      result.failed.push_back(item.original);
      result.reasons[item.original] = reasonFor(error);
    }
  }

  if (remaining.empty()) {
    removeBatchFolder(store.root, id);
  } else {
    batch.items = std::move(remaining);
    writeManifest(batchDir, batch);
    ::unlinkat(batchDir.fd(), std::string(MoveJournal::restoreFileName).c_str(), 0);
  }
  return result;
}

// Walks a batch folder that has no journal by its layout: an entry goes back when its home
// place is free; a folder present on both sides is entered.
void mergeBack(const DirHandle& batchFolder, const DirHandle& homeFolder, const std::string& relative,
               const FileFaults* faults, RecoverResult& result, std::vector<std::string>& structural) {
  for (const auto& name : namesIn(batchFolder)) {
    if (relative.empty() && isOwnTopName(name)) continue;
    const std::string child = joinRelative(relative, name);
    try {
      if (!entryExists(homeFolder, name)) {
        moveEntry(batchFolder, name, homeFolder, name, newPartialName(), faults, child);
        result.restored.push_back(child);
        continue;
      }
      if (isRealFolderAt(batchFolder.fd(), name) && isRealFolderAt(homeFolder.fd(), name)) {
        structural.push_back(child);
        mergeBack(openBelow(batchFolder, name), openBelow(homeFolder, name), child, faults, result, structural);
        continue;
      }
    } catch (const std::system_error&) {
    }
    result.kept.push_back(child);
  }
}

// Removes the folders that only held items (deepest first, each only when empty), then the
// store's own files and the folder itself when nothing else is left in it.
RecoverState clearOrphan(const DirHandle& rootDir, const DirHandle& batchDir, const std::string& folder,
                         std::vector<std::string> structural, RecoverResult& result) {
  std::sort(structural.begin(), structural.end(),
            [](const std::string& a, const std::string& b) { return a.size() > b.size(); });
  structural.erase(std::unique(structural.begin(), structural.end()), structural.end());
  for (const auto& path : structural) {
    try {
      DirHandle parent = openBelow(batchDir, parentOf(path));
      ::unlinkat(parent.fd(), lastComponent(path).c_str(), AT_REMOVEDIR);
    } catch (const std::system_error&) {
    }
  }
  const auto names = namesIn(batchDir);
  const bool onlyOwnFiles = std::all_of(names.begin(), names.end(), [](const std::string& n) { return isOwnTopName(n); });
  if (onlyOwnFiles) {
    // The journal goes last, so that a crash in between leaves a folder recover still reads.
    for (const auto& name : names)
      if (name != MoveJournal::fileName) ::unlinkat(batchDir.fd(), name.c_str(), 0);
    ::unlinkat(batchDir.fd(), std::string(MoveJournal::fileName).c_str(), 0);
    if (::unlinkat(rootDir.fd(), folder.c_str(), AT_REMOVEDIR) == 0) {
      syncFolder(rootDir);
      return RecoverState::emptied;
    }
  }
  if (result.kept.empty())
    for (const auto& name : names)
      if (!isOwnTopName(name)) result.kept.push_back(name);
  return RecoverState::leftOver;
}

}  // namespace

Quarantine::Quarantine(std::filesystem::path root, std::filesystem::path home,
                       std::shared_ptr<const FileFaults> faults)
    : root(std::move(root)), home(std::move(home)), faults(std::move(faults)) {}

std::filesystem::path Quarantine::defaultRoot(const std::filesystem::path& home) {
  return home / ".vorlan" / "quarantine";
}

std::string Quarantine::batchID(int64_t now) {
  const time_t seconds = static_cast<time_t>(now);
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  return fmt::format("{:04}-{:02}-{:02}T{:02}{:02}{:02}", utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday,
                     utc.tm_hour, utc.tm_min, utc.tm_sec);
}

HomePath Quarantine::resolveInsideHome(std::string_view relative) const {
  if (relative.starts_with('/')) throw QuarantineError(QuarantineErrorKind::outsideHome, std::string(relative));
  const std::string location = checkInside(home, relative, QuarantineErrorKind::outsideHome);
  return {location, location.substr(prefixOf(standardBase(home)).size())};
}

std::filesystem::path Quarantine::resolveInsideBatch(const std::filesystem::path& batchFolder,
                                                     std::string_view relative) {
  return checkInside(batchFolder, relative, QuarantineErrorKind::outsideBatch);
}

std::filesystem::path Quarantine::resolveBatchDir(std::string_view id) const {
  auto refuse = [&]() -> std::filesystem::path {
    throw QuarantineError(QuarantineErrorKind::outsideQuarantine, std::string(id));
  };
  if (id.find('/') != std::string_view::npos || id == "." || id == ".." ||
      id.find('\0') != std::string_view::npos)
    return refuse();
  const std::string stdRoot = standardBase(root);
  const std::string joined = standardize(stdRoot + "/" + std::string(id));
  if (!isBelow(joined, stdRoot)) return refuse();
  return joined;
}

NewBatchFolder Quarantine::createBatchDirectory(int64_t now, int maxAttempts) const {
  const auto store = openStore(*this, true, true);
  return createBatchIn(store->root, root, now, maxAttempts);
}

QuarantineBatch Quarantine::move(const std::vector<std::string>& paths, int64_t now, std::stop_token stop,
                                 FailureReasons* reasons) const {
  std::vector<HomePath> sources;
  sources.reserve(paths.size());
  for (const auto& path : paths) sources.push_back(resolveInsideHome(path));

  const auto store = openStore(*this, true, true);
  const NewBatchFolder folder = createBatchIn(store->root, root, now, 100);
  try {
    for (const auto& source : sources) resolveInsideBatch(folder.location, source.relative);
  } catch (...) {
    ::unlinkat(store->root.fd(), folder.id.c_str(), AT_REMOVEDIR);
    throw;
  }

  DirHandle batchDir;
  MoveJournal journal;
  try {
    batchDir = openBelow(store->root, folder.id);
    journal = MoveJournal::create(batchDir);
  } catch (...) {
    // Nothing has moved yet: the folder holds at most an empty journal.
    try {
      removeTree(store->root, folder.id);
    } catch (const std::system_error&) {
    }
    throw;
  }

  QuarantineBatch batch{folder.id, now, now + holdSeconds, {}, {}};
  const std::string stdHome = standardBase(home);
  const std::string realRoot = resolveLinks(standardBase(root));
  bool journalUsable = true;
  for (const auto& source : sources) {
    const std::string& relative = source.relative;
    auto fail = [&](std::string why) {
      batch.failures.push_back(relative);
      if (reasons) (*reasons)[relative] = std::move(why);
    };
    auto from = placeBelow(stdHome, source.location.string());
    if (!journalUsable) {
      fail("보관함에 기록을 남길 수 없어 옮기지 않았습니다");
    } else if (stop.stop_requested()) {
      fail("중단해서 옮기지 않았습니다");
    } else if (!isValidUtf8(relative)) {
      // JSON cannot hold such a name as it is.
      fail("이름에 UTF-8이 아닌 글자가 있어 옮기지 않았습니다");
    } else if (isReservedInBatch(relative)) {
      fail("보관함이 쓰는 이름과 겹쳐 옮기지 않았습니다");
    } else if (!from) {
      fail("경로를 확인할 수 없어 옮기지 않았습니다");
    } else if (overlapsStore(realPathOf(stdHome, *from), realRoot)) {
      fail("Vorlan 자신의 보관 폴더라서 옮기지 않았습니다");
    } else {
      try {
        DirHandle fromDir = openBelow(store->home, from->parent);
        struct stat st;
        if (::fstatat(fromDir.fd(), from->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
          throw errno == ENOENT ? ItemRefusal("없는 경로입니다") : ItemRefusal(describeItemProblem(
                                                                 std::system_error(errno, std::generic_category())));
        // A mount anywhere inside, a bind mount of any folder included, would ride along with
        // a rename and be emptied with the batch: such a folder does not move at all.
        if (S_ISDIR(st.st_mode) && !mountPointsWithin(realPathOf(stdHome, *from)).empty())
          throw std::system_error(EXDEV, std::generic_category(), relative);
        const int64_t bytes = measureItem(source.location);
        const std::string storedParent = parentOf(relative);
        const std::string partial = newPartialName();
        // Written before anything is made in the batch, so that all a crash can leave there is
        // accounted for by the journal.
        try {
          journal.append({relative, relative, joinRelative(storedParent, partial)});
        } catch (const std::system_error&) {
          journalUsable = false;
          throw;
        }
        checkpoint(faults.get(), "intent", relative);
        DirHandle toDir = makeFoldersBelow(batchDir, storedParent, 0700);
        moveEntry(fromDir, from->name, toDir, lastComponent(relative), partial, faults.get(), relative,
                  [&] { journal.markPlaced(relative); });
        batch.items.push_back({relative, relative, bytes});
        checkpoint(faults.get(), "moved", relative);
      } catch (const std::exception& error) {
        fail(reasonFor(error));
      }
    }
  }
  if (batch.items.empty()) {
    // Nothing moved, so nothing of the user's lies in the folder: no empty batch stays behind.
    try {
      removeTree(store->root, folder.id);
    } catch (const std::system_error&) {
    }
    return batch;
  }
  checkpoint(faults.get(), "manifest", "");
  writeManifest(batchDir, batch);
  return batch;
}

std::vector<std::string> Quarantine::batches() const {
  const auto store = openStore(*this, false, false);
  std::vector<std::string> ids;
  if (!store) return ids;
  for (auto& name : namesIn(store->root))
    if (!name.starts_with('.')) ids.push_back(std::move(name));
  return ids;
}

QuarantineBatch Quarantine::manifest(std::string_view id) const {
  const std::string name = resolveBatchDir(id).filename().string();
  const auto store = openStore(*this, false, false);
  if (!store) throw QuarantineError(QuarantineErrorKind::batchNotFound, name);
  return manifestIn(openBatch(store->root, name), name);
}

std::vector<QuarantineBatch> Quarantine::listBatches() const {
  std::vector<QuarantineBatch> result;
  const auto store = openStore(*this, false, false);
  if (!store) return result;
  for (const auto& id : namesIn(store->root)) {
    if (id.starts_with('.')) continue;
    try {
      auto batch = manifestIn(openBatch(store->root, id), id);
      if (batch.id == id) result.push_back(std::move(batch));
    } catch (const std::exception&) {
    }
  }
  return result;
}

RestoreResult Quarantine::restore(std::string_view id) const {
  const std::string name = resolveBatchDir(id).filename().string();
  const OpenStore store = openStoreFor(*this, name);
  return restoreIn(*this, store, name);
}

void Quarantine::purge(std::string_view id) const {
  const std::string name = resolveBatchDir(id).filename().string();
  const OpenStore store = openStoreFor(*this, std::string(id));
  struct stat st;
  if (::fstatat(store.root.fd(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
    throw QuarantineError(QuarantineErrorKind::batchNotFound, std::string(id));
  if (S_ISDIR(st.st_mode)) {
    // A restore cut off may have left a copy at home that nothing else would remove.
    try {
      if (!settleRestore(*this, store, openBatch(store.root, name), name)) return;
    } catch (const QuarantineError& error) {
      if (error.kind() == QuarantineErrorKind::storeBusy) throw;
    } catch (const ManifestDecodingError&) {
    }
  }
  removeBatchFolder(store.root, name);
}

ExpireResult Quarantine::expire(int64_t now) const {
  ExpireResult result;
  const auto store = openStore(*this, false, true);
  if (!store) return result;
  for (const auto& id : namesIn(store->root)) {
    if (id.starts_with('.')) continue;
    try {
      resolveBatchDir(id);
      const QuarantineBatch batch = manifestIn(openBatch(store->root, id), id);
      // A manifest that speaks for another folder proves nothing about this one.
      if (batch.id != id || now < batch.expiresEpoch) continue;
    } catch (const std::exception&) {
      continue;
    }
    try {
      if (settleRestore(*this, *store, openBatch(store->root, id), id)) removeBatchFolder(store->root, id);
      result.purged.push_back(id);
    } catch (const std::exception& error) {
      result.failed.push_back(id);
      result.reasons[id] = describeItemProblem(error);
    }
  }
  return result;
}

std::vector<std::string> Quarantine::orphanedFolders() const {
  std::vector<std::string> result;
  const auto store = openStore(*this, false, false);
  if (!store) return result;
  for (const auto& id : namesIn(store->root)) {
    if (id.starts_with('.') || !isRealFolderAt(store->root.fd(), id)) continue;
    try {
      const DirHandle batch = openBatch(store->root, id);
      if (manifestIn(batch, id).id == id && !hasRestoreJournal(batch)) continue;
    } catch (const std::exception&) {
    }
    result.push_back(id);
  }
  return result;
}

RecoverResult Quarantine::recover(std::string_view folderName, int64_t now) const {
  RecoverResult result;
  result.folder = std::string(folderName);
  const std::string id = resolveBatchDir(folderName).filename().string();
  const OpenStore store = openStoreFor(*this, result.folder);
  if (!isRealFolderAt(store.root.fd(), id)) throw QuarantineError(QuarantineErrorKind::batchNotFound, result.folder);
  const DirHandle batchDir = openBatch(store.root, id);

  bool isBatch = false;
  try {
    isBatch = manifestIn(batchDir, id).id == id;
  } catch (const std::exception&) {
  }
  if (isBatch) {
    if (!hasRestoreJournal(batchDir)) {
      result.state = RecoverState::notOrphan;
      return result;
    }
    // A restore was cut off: what had gone home stays there, the rest stays in the batch.
    result.state = settleRestore(*this, store, batchDir, id, &result.restored) ? RecoverState::keptAsBatch
                                                                                : RecoverState::emptied;
    return result;
  }

  MoveJournal journal;
  const auto opening = MoveJournal::openExisting(batchDir, journal);
  if (opening == MoveJournal::Opening::busy) {
    result.state = RecoverState::busy;
    return result;
  }
  std::vector<std::string> structural;
  if (opening != MoveJournal::Opening::opened) {
    mergeBack(batchDir, store.home, "", faults.get(), result, structural);
    result.state = clearOrphan(store.root, batchDir, id, structural, result);
    return result;
  }

  // A move was cut off. Each journaled item is first made whole in one place: a copy in
  // progress goes, and a source whose removal was under way loses what its whole copy holds.
  // The items then in the folder become a batch of its own that is restored at once, so the
  // way back is the restore's, with its journal: a kill during it is settled the same way.
  const std::string stdHome = standardBase(home);
  const std::string stdBatch = standardBase(root) + "/" + id;
  const std::string realRoot = resolveLinks(standardBase(root));
  QuarantineBatch batch{id, now, now + holdSeconds, {}, {}};
  const auto entries = journal.entries();
  std::set<std::string> seen;
  for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
    const JournalEntry& entry = *it;
    if (!seen.insert(entry.stored).second) continue;
    std::string stored;
    try {
      // The journal is read back as warily as a manifest.
      const std::string source = resolveInsideBatch(stdBatch, entry.stored);
      const HomePath target = resolveInsideHome(entry.original);
      stored = source.substr(prefixOf(stdBatch).size());
      if (isReservedInBatch(stored)) continue;
      for (auto p = parentOf(stored); !p.empty(); p = parentOf(p)) structural.push_back(p);
      auto from = placeBelow(stdBatch, source);
      auto to = placeBelow(stdHome, target.location.string());
      if (!from || !to) throw QuarantineError(QuarantineErrorKind::outsideBatch, entry.stored);
      if (overlapsStore(realPathOf(stdHome, *to), realRoot))
        throw QuarantineError(QuarantineErrorKind::outsideHome, entry.original);
      std::optional<DirHandle> storedDir;
      try {
        storedDir = openBelow(batchDir, from->parent);
      } catch (const std::system_error&) {
        continue;  // its folder was never made: the item never left home
      }
      // This move went from home into the batch: the copy is in the batch, the source at home.
      std::optional<DirHandle> homeDir;
      try {
        homeDir = openBelow(store.home, to->parent);
      } catch (const std::system_error&) {
      }
      if (homeDir) {
        settleMove(entry, batchDir, *homeDir, to->name, [&] { return openBelow(batchDir, from->parent); }, from->name);
      } else {
        removePartial(batchDir, entry.partial);
      }
      if (!entryExists(*storedDir, from->name)) continue;  // never moved, or back already
      batch.items.insert(batch.items.begin(), {target.relative, stored, measureItem(source)});
    } catch (const std::exception&) {
      result.kept.insert(result.kept.begin(), stored.empty() ? entry.stored : stored);
    }
  }
  if (batch.items.empty() || !result.kept.empty()) {
    // Nothing to give back, or lines that can't be trusted: what is left stays for a person.
    for (const auto& item : batch.items) result.kept.push_back(item.stored);
    result.state = clearOrphan(store.root, batchDir, id, structural, result);
    return result;
  }
  writeManifest(batchDir, batch);
  ::unlinkat(batchDir.fd(), std::string(MoveJournal::fileName).c_str(), 0);
  journal = MoveJournal();
  const RestoreResult restored = restoreIn(*this, store, id);
  result.restored = restored.restored;
  result.kept = restored.failed;
  result.reasons = restored.reasons;
  result.state = isRealFolderAt(store.root.fd(), id) ? RecoverState::keptAsBatch : RecoverState::emptied;
  return result;
}

}  // namespace vorlan
