#include "quarantine/Quarantine.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <system_error>

#include "cleanup/UsageMeasurement.hpp"
#include "platform/AtomicFile.hpp"
#include "platform/FileReading.hpp"
#include "platform/Utf8Text.hpp"
#include "quarantine/MoveJournal.hpp"

// How a move survives being killed at any instant.
//
// A batch folder mirrors the home folder: an item from `Library/Caches/x` lies at
// `<batch>/Library/Caches/x`, and the manifest, written last, is what makes the folder a batch.
// Before that, the folder holds a journal (MoveJournal): before each item moves, one line
// naming its home path, its batch path and the temporary name a copy across file systems
// would use is appended and flushed. The move itself is one exclusive rename, or a copy under
// the temporary name that is renamed into place only when complete, after which the source is
// removed. So at any instant each journal line's item is in exactly one of these states:
//   - still at home (the rename had not happened, or the copy was under way: the temporary
//     copy is incomplete and the source whole);
//   - in the batch under its path, the home place free;
//   - in the batch under its path, the home place not empty (a copy whose source was being
//     removed, or something new made there since).
// `recover` reads the journal, deletes temporary copies, moves items of the second state back
// with the same exclusive rename, and leaves the third in the batch and reports it: whatever
// stands at home now is never replaced. A journal line cut short by the crash belongs to a
// move that never began. The journal stays in the batch folder for the batch's life, and its
// lock (held by the writing process, released by the system when that process dies) keeps
// `recover` away from a folder that is still being filled. A folder without a journal at all
// is read by its layout instead: each entry goes back when its home place is free, and a
// folder that exists on both sides is entered.

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


// mkdir -p with owner-only folders: what the quarantine holds may come from private folders.
void makePrivateFolders(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> missing;
  for (auto p = std::filesystem::absolute(folder).lexically_normal(); !p.empty(); p = p.parent_path()) {
    struct stat st;
    if (::lstat(p.c_str(), &st) == 0) break;
    missing.push_back(p);
    if (p == p.parent_path()) break;
  }
  for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
    if (::mkdir(it->c_str(), 0700) != 0 && errno != EEXIST)
      throw std::system_error(errno, std::generic_category(), it->string());
  }
  struct stat st;
  if (::stat(folder.c_str(), &st) != 0) throw std::system_error(errno, std::generic_category(), folder.string());
  if (!S_ISDIR(st.st_mode)) throw std::system_error(ENOTDIR, std::generic_category(), folder.string());
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

bool Quarantine::rootLiesInHome() const {
  const std::string realRoot = resolveLinks(standardBase(root));
  const std::string realHome = resolveLinks(standardBase(home));
  return !realRoot.empty() && !realHome.empty() && isBelow(realRoot, realHome);
}

NewBatchFolder Quarantine::createBatchDirectory(int64_t now, int maxAttempts) const {
  makePrivateFolders(root);
  const std::string base = batchID(now);
  const int attempts = std::max(maxAttempts, 1);
  for (int n = 1; n <= attempts; ++n) {
    std::string id = n == 1 ? base : fmt::format("{}-{}", base, n);
    auto location = root / id;
    // The exclusive creation is what keeps ids unique, also between two processes.
    if (::mkdir(location.c_str(), 0700) == 0) return {location, id};
    if (errno != EEXIST) throw std::system_error(errno, std::generic_category(), location.string());
  }
  throw QuarantineError(QuarantineErrorKind::batchIDExhausted, base);
}

QuarantineBatch Quarantine::move(const std::vector<std::string>& paths, int64_t now, std::stop_token stop) const {
  std::vector<HomePath> sources;
  sources.reserve(paths.size());
  for (const auto& path : paths) sources.push_back(resolveInsideHome(path));

  const NewBatchFolder folder = createBatchDirectory(now, 100);
  try {
    for (const auto& source : sources) resolveInsideBatch(folder.location, source.relative);
  } catch (...) {
    ::rmdir(folder.location.c_str());
    throw;
  }

  DirHandle homeDir, batchDir;
  MoveJournal journal;
  try {
    homeDir = DirHandle::open(home);
    batchDir = openBelow(DirHandle::open(root), folder.id);
    journal = MoveJournal::create(batchDir);
  } catch (...) {
    // Nothing has moved yet: the folder holds at most an empty journal.
    std::error_code ec;
    std::filesystem::remove_all(folder.location, ec);
    throw;
  }

  QuarantineBatch batch{folder.id, now, now + holdSeconds, {}, {}};
  const std::string stdHome = standardBase(home);
  const std::string realRoot = resolveLinks(standardBase(root));
  bool journalUsable = true;
  for (const auto& source : sources) {
    const std::string& relative = source.relative;
    auto fail = [&] { batch.failures.push_back(relative); };
    if (!journalUsable || stop.stop_requested()) {
      fail();
      continue;
    }
    // Names JSON cannot hold as they are, names that would collide with the batch's own
    // files, and the quarantine itself (or a folder holding it) stay where they are.
    auto from = placeBelow(stdHome, source.location.string());
    if (!isValidUtf8(relative) || isReservedInBatch(relative) || !from) {
      fail();
      continue;
    }
    if (overlapsStore(realPathOf(stdHome, *from), realRoot)) {
      fail();
      continue;
    }
    try {
      DirHandle fromDir = openBelow(homeDir, from->parent);
      if (!entryExists(fromDir, from->name)) {
        fail();
        continue;
      }
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
      moveEntry(fromDir, from->name, toDir, lastComponent(relative), partial, faults.get(), relative);
      batch.items.push_back({relative, relative, bytes});
      checkpoint(faults.get(), "moved", relative);
    } catch (const std::system_error&) {
      fail();
    }
  }
  checkpoint(faults.get(), "manifest", "");
  writeFileAtomically(folder.location / manifestName, encodeManifest(batch));
  return batch;
}

std::vector<std::string> Quarantine::batches() const {
  std::vector<std::string> ids;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (!name.starts_with('.')) ids.push_back(std::move(name));
  }
  if (ec) return {};
  std::sort(ids.begin(), ids.end());
  return ids;
}

QuarantineBatch Quarantine::manifest(std::string_view id) const {
  const auto folder = resolveBatchDir(id);
  auto text = readRegularFile(folder / manifestName);
  if (!text) throw QuarantineError(QuarantineErrorKind::batchNotFound, folder.filename().string());
  return decodeManifest(*text);
}

std::vector<QuarantineBatch> Quarantine::listBatches() const {
  std::vector<QuarantineBatch> result;
  for (const auto& id : batches()) {
    try {
      auto batch = manifest(id);
      if (batch.id == id) result.push_back(std::move(batch));
    } catch (const std::exception&) {
    }
  }
  return result;
}

RestoreResult Quarantine::restore(std::string_view id) const {
  const auto folder = resolveBatchDir(id);
  QuarantineBatch batch = manifest(id);
  const std::string folderName = folder.filename().string();
  const DirHandle rootDir = DirHandle::open(root);
  const DirHandle batchDir = openBelow(rootDir, folderName);
  const DirHandle homeDir = DirHandle::open(home);
  const std::string stdHome = standardBase(home);
  const std::string stdBatch = folder.string();
  const std::string realRoot = resolveLinks(standardBase(root));

  RestoreResult result;
  std::vector<QuarantineItem> remaining;
  for (const auto& item : batch.items) {
    try {
      const std::string source = resolveInsideBatch(folder, item.stored);
      const HomePath target = resolveInsideHome(item.original);
      auto from = placeBelow(stdBatch, source);
      auto to = placeBelow(stdHome, target.location.string());
      if (!from || !to || isReservedInBatch(source.substr(prefixOf(stdBatch).size())))
        throw QuarantineError(QuarantineErrorKind::outsideBatch, item.stored);
      if (overlapsStore(realPathOf(stdHome, *to), realRoot))
        throw QuarantineError(QuarantineErrorKind::outsideHome, item.original);
      DirHandle fromDir = openBelow(batchDir, from->parent);
      if (!entryExists(fromDir, from->name)) throw std::system_error(ENOENT, std::generic_category(), item.stored);
      // Occupied by anything at all, a dangling link included: the item stays. The exclusive
      // rename below decides again, in case something appears in between.
      bool occupied = false;
      try {
        occupied = entryExists(openBelow(homeDir, to->parent), to->name);
      } catch (const std::system_error&) {
        // Its folder is gone: the place is free, and the folder is made again below.
      }
      if (occupied) throw std::system_error(EEXIST, std::generic_category(), item.original);
      DirHandle toDir = makeFoldersBelow(homeDir, to->parent, 0777);
      moveEntry(fromDir, from->name, toDir, to->name, newPartialName(), faults.get(), item.original);
      result.restored.push_back(item.original);
    } catch (const std::exception&) {
      remaining.push_back(item);
      result.failed.push_back(item.original);
    }
  }

  if (remaining.empty()) {
    removeBatchFolder(rootDir, folderName);
  } else {
    batch.items = std::move(remaining);
    writeFileAtomically(folder / manifestName, encodeManifest(batch));
  }
  return result;
}

void Quarantine::purge(std::string_view id) const {
  const auto folder = resolveBatchDir(id);
  struct stat st;
  if (::lstat(folder.c_str(), &st) != 0) throw QuarantineError(QuarantineErrorKind::batchNotFound, std::string(id));
  removeBatchFolder(DirHandle::open(root), folder.filename().string());
}

ExpireResult Quarantine::expire(int64_t now) const {
  ExpireResult result;
  for (const auto& id : batches()) {
    try {
      resolveBatchDir(id);
      const QuarantineBatch batch = manifest(id);
      // A manifest that speaks for another folder proves nothing about this one.
      if (batch.id != id || now < batch.expiresEpoch) continue;
    } catch (const std::exception&) {
      continue;
    }
    try {
      removeBatchFolder(DirHandle::open(root), id);
      result.purged.push_back(id);
    } catch (const std::exception&) {
      result.failed.push_back(id);
    }
  }
  return result;
}

std::vector<std::string> Quarantine::orphanedFolders() const {
  std::vector<std::string> result;
  for (const auto& id : batches()) {
    struct stat st;
    if (::lstat((root / id).c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) continue;
    try {
      if (manifest(id).id == id) continue;
    } catch (const std::exception&) {
    }
    result.push_back(id);
  }
  return result;
}

namespace {

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

}  // namespace

RecoverResult Quarantine::recover(std::string_view folderName) const {
  RecoverResult result;
  result.folder = std::string(folderName);
  const auto folder = resolveBatchDir(folderName);
  struct stat st;
  if (::lstat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
    throw QuarantineError(QuarantineErrorKind::batchNotFound, std::string(folderName));
  try {
    if (manifest(folderName).id == folderName) {
      result.state = RecoverState::notOrphan;
      return result;
    }
  } catch (const std::exception&) {
  }

  const DirHandle rootDir = DirHandle::open(root);
  const DirHandle batchDir = openBelow(rootDir, result.folder);
  const DirHandle homeDir = DirHandle::open(home);
  MoveJournal journal;
  const auto opening = MoveJournal::openExisting(batchDir, journal);
  if (opening == MoveJournal::Opening::busy) {
    result.state = RecoverState::busy;
    return result;
  }

  // Folders inside the batch that exist only to hold items; emptied ones are removed.
  std::vector<std::string> structural;
  if (opening == MoveJournal::Opening::opened) {
    const std::string stdHome = standardBase(home);
    const std::string stdBatch = folder.string();
    const std::string realRoot = resolveLinks(standardBase(root));
    auto entries = journal.entries();
    std::set<std::string> seen;
    // Newest first, as an undo goes.
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
      const JournalEntry& entry = *it;
      if (!seen.insert(entry.stored).second) continue;
      std::string stored;
      try {
        // The journal is read back as warily as a manifest.
        const std::string source = resolveInsideBatch(folder, entry.stored);
        const HomePath target = resolveInsideHome(entry.original);
        stored = source.substr(prefixOf(stdBatch).size());
        if (isReservedInBatch(stored)) continue;
        for (auto p = parentOf(stored); !p.empty(); p = parentOf(p)) structural.push_back(p);
        auto from = placeBelow(stdBatch, source);
        auto to = placeBelow(stdHome, target.location.string());
        if (!from || !to) throw QuarantineError(QuarantineErrorKind::outsideBatch, entry.stored);
        if (overlapsStore(realPathOf(stdHome, *to), realRoot))
          throw QuarantineError(QuarantineErrorKind::outsideHome, entry.original);

        std::optional<DirHandle> fromDir;
        try {
          fromDir = openBelow(batchDir, from->parent);
        } catch (const std::system_error&) {
          continue;  // its folder was never made: the item never left home
        }
        // A copy under its temporary name was cut short; its source is whole at home.
        const std::string partialName = lastComponent(entry.partial);
        if (parentOf(entry.partial) == parentOf(entry.stored) && partialName.starts_with(kPartialPrefix))
          removeTree(*fromDir, partialName);
        if (!entryExists(*fromDir, from->name)) continue;  // never moved, or back already
        DirHandle toDir = makeFoldersBelow(homeDir, to->parent, 0777);
        if (entryExists(toDir, to->name)) throw std::system_error(EEXIST, std::generic_category(), entry.original);
        moveEntry(*fromDir, from->name, toDir, to->name, newPartialName(), faults.get(), entry.original);
        result.restored.push_back(target.relative);
      } catch (const std::exception&) {
        result.kept.push_back(stored.empty() ? entry.stored : stored);
      }
    }
    std::reverse(result.restored.begin(), result.restored.end());
    std::reverse(result.kept.begin(), result.kept.end());
  } else {
    mergeBack(batchDir, homeDir, "", faults.get(), result, structural);
  }

  // Deepest first; a folder that still holds anything stays.
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
    if (::unlinkat(rootDir.fd(), result.folder.c_str(), AT_REMOVEDIR) == 0) {
      syncFolder(rootDir);
      result.state = RecoverState::emptied;
      return result;
    }
  }
  if (result.kept.empty())
    for (const auto& name : names)
      if (!isOwnTopName(name)) result.kept.push_back(name);
  result.state = RecoverState::leftOver;
  return result;
}

}  // namespace vorlan
