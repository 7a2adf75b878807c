#include "scan/WalkEngine.hpp"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/vfs.h>
#endif

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <system_error>
#include <thread>
#include <unordered_map>

#include "Cancelled.hpp"

namespace vorlan {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr auto kReportEvery = std::chrono::milliseconds(200);

bool isDotOrDotDot(const char* name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// du -k prints a sum of 512-byte blocks in KiB, rounded up once at the end, not per file.
int64_t duBytes(int64_t blocks) { return (blocks + 1) / 2 * 1024; }

std::string joinPath(const std::string& folder, const std::string& name) {
  // du does not double a slash that its argument already ends with.
  return folder.ends_with('/') ? folder + name : folder + "/" + name;
}

// The question paths inside one walk's tree, by name: a folder learns from its parent's place
// whether a child is asked about, without any path being built.
struct Place {
  std::map<std::string, Place, std::less<>> children;
  std::vector<std::string> spellings;  // the paths asked for this place, as they were asked
  bool listsChildren = false;          // asked at depth 1: each child folder gets a figure

  const Place* find(std::string_view name) const {
    auto it = children.find(name);
    return it == children.end() ? nullptr : &it->second;
  }
};

// The names below `root` that lead to `path`; absent when `path` lies elsewhere or takes a
// turn ("." or "..") that a walk cannot follow by name.
std::optional<std::vector<std::string>> namesBelow(const std::string& root, const std::string& path) {
  const std::string prefix = root.ends_with('/') ? root : root + "/";
  if (path != root && !path.starts_with(prefix)) return std::nullopt;
  std::vector<std::string> names;
  size_t start = std::min(prefix.size(), path.size());
  while (start < path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    std::string name = path.substr(start, end - start);
    if (name == "." || name == "..") return std::nullopt;
    if (!name.empty()) names.push_back(std::move(name));
    start = end + 1;
  }
  return names;
}

// A folder or file that some answer names: a question's own path, or a child folder of a
// depth-1 question. Everything else only adds its blocks to the nearest node above it.
struct Node {
  std::string name;         // the entry's name; the root's is its whole path
  Node* parent = nullptr;   // the nearest node above
  uint32_t position = 0;    // where du meets it among the entries of its folder
  ino_t listedInode = 0;    // as the folder listing gave it: du's order in very large folders
  bool isFolder = false;
  bool direct = false;      // an entry of the parent node's own folder, not of one below it
  bool listsChildren = false;
  std::atomic<int64_t> blocks{0};  // 512-byte blocks of what has this node as its nearest
  int64_t total = 0;               // blocks of its whole tree, hard links aside
};

// One name of a file with more than one link: du counts the file at the first name it meets.
struct Link {
  dev_t device;
  ino_t inode;
  int64_t blocks;
  Node* node;  // nearest node
  uint32_t position;
  ino_t listedInode;
};

}  // namespace

struct WalkEngine::Walk {
  Place places;
  std::deque<Node> nodes;  // [0] is the root; a node always comes after its parent
  std::vector<Link> links;
  std::map<std::string, Node*> reached;  // asked path → its node
};

struct WalkEngine::Found {
  const Walk* walk;
  const Node* node;
};

namespace {

struct PathLink {
  std::shared_ptr<const PathLink> parent;
  std::string name;
};

std::string fullPath(const PathLink* link) {
  std::vector<const std::string*> names;
  for (; link; link = link->parent.get()) names.push_back(&link->name);
  std::string path = *names.back();
  for (auto it = names.rbegin() + 1; it != names.rend(); ++it) path = joinPath(path, **it);
  return path;
}

// A listed folder, kept open until each of its child folders has been opened from it.
struct OpenFolder {
  DIR* dir;
  explicit OpenFolder(DIR* d) : dir(d) {}
  ~OpenFolder() { ::closedir(dir); }
  OpenFolder(const OpenFolder&) = delete;
  OpenFolder& operator=(const OpenFolder&) = delete;
  int fd() const { return ::dirfd(dir); }
};

struct Task {
  std::shared_ptr<OpenFolder> parent;  // null for the root, which is opened by its path
  std::shared_ptr<const PathLink> where;
  Node* node = nullptr;         // the nearest node: the folder's own when it has one
  bool ownNode = false;
  const Place* place = nullptr;  // the folder among the question paths, or null
};

#ifdef __linux__
// GNU du reads a folder in batches of 100,000 names and, except on tmpfs, NFS and CIFS, sorts a
// batch of more than 10,000 by inode number before it visits them. Which name of a hard-linked
// file it counts, and the order of its lines, follow that order.
constexpr size_t kDuBatch = 100000;
constexpr size_t kDuSortAbove = 10000;

bool duSortsLargeFolders(int fd) {
  struct statfs fs {};
  if (::fstatfs(fd, &fs) != 0) return true;
  switch (static_cast<unsigned long>(fs.f_type)) {
    case 0x01021994UL:  // tmpfs
    case 0x6969UL:      // NFS
    case 0xFF534D42UL:  // CIFS
      return false;
    default:
      return true;
  }
}

template <typename Item>
void reorderLikeDu(const std::vector<ino_t>& listed, std::span<Item> items) {
  for (size_t start = 0; start < listed.size(); start += kDuBatch) {
    const size_t count = std::min(kDuBatch, listed.size() - start);
    if (count <= kDuSortAbove) continue;
    std::vector<ino_t> sorted(listed.begin() + start, listed.begin() + start + count);
    std::sort(sorted.begin(), sorted.end());
    for (Item& item : items) {
      if (item.position < start || item.position >= start + count) continue;
      item.position = static_cast<uint32_t>(
          start + (std::lower_bound(sorted.begin(), sorted.end(), item.listedInode) - sorted.begin()));
    }
  }
}
#endif

// One walk of one tree by a pool of threads that share a stack of folders still to read.
class Walker {
 public:
  Walker(WalkEngine::Walk& walk, dev_t device) : walk_(walk), device_(device) {}

  // Returns when every folder has been read; throws Cancelled, after joining, when stopped.
  void run(Task root, unsigned threads, const WalkProgress& progress, std::stop_token stop) {
    pending_.push_back(std::move(root));
    std::vector<std::vector<Link>> links(threads);
    std::shared_ptr<const PathLink> shown;
    bool cancelled = false;
    {
      std::vector<std::jthread> workers;
      for (unsigned i = 0; i < threads; ++i) workers.emplace_back([this, &links, i] { work(links[i]); });
      std::unique_lock lock(lock_);
      while (!finished_) {
        ended_.wait_for(lock, stop, kReportEvery, [this] { return finished_; });
        if (finished_) break;
        if (stop.stop_requested()) {
          cancelled = finished_ = true;
          stopped_.store(true, std::memory_order_relaxed);
          wake_.notify_all();
          break;
        }
        lock.unlock();
        show(progress, shown);
        lock.lock();
      }
    }
    if (cancelled) throw Cancelled{};
    show(progress, shown);  // the last folder read, whatever the timing
    for (auto& some : links) walk_.links.insert(walk_.links.end(), some.begin(), some.end());
  }

  bool ranOutOfDescriptors() const { return descriptorsShort_.load(); }

 private:
  void show(const WalkProgress& progress, std::shared_ptr<const PathLink>& shown) {
    if (!progress) return;
    std::shared_ptr<const PathLink> now;
    {
      std::lock_guard guard(atWorkLock_);
      now = atWork_;
    }
    if (now && now != shown) progress(fullPath(now.get()));
    shown = std::move(now);
  }

  void work(std::vector<Link>& links) {
    std::vector<Task> found;
    for (;;) {
      Task task;
      {
        std::unique_lock lock(lock_);
        wake_.wait(lock, [this] { return !pending_.empty() || finished_; });
        if (finished_) return;
        task = std::move(pending_.back());
        pending_.pop_back();
        ++busy_;
      }
      {
        std::lock_guard guard(atWorkLock_);
        atWork_ = task.where;
      }
      found.clear();
      readFolder(task, found, links);
      task = {};
      std::lock_guard lock(lock_);
      --busy_;
      for (Task& t : found) pending_.push_back(std::move(t));
      if (finished_ || (pending_.empty() && busy_ == 0)) {
        finished_ = true;
        wake_.notify_all();
        ended_.notify_all();
      } else if (found.size() > 1) {
        wake_.notify_all();
      } else if (found.size() == 1) {
        wake_.notify_one();
      }
    }
  }

  Node* addNode(Node* parent, bool direct, const char* name, uint32_t position, ino_t listedInode,
                bool isFolder, const Place* place) {
    std::lock_guard guard(nodesLock_);
    Node& node = walk_.nodes.emplace_back();
    node.name = name;
    node.parent = parent;
    node.direct = direct;
    node.position = position;
    node.listedInode = listedInode;
    node.isFolder = isFolder;
    if (place) {
      node.listsChildren = place->listsChildren;
      for (const std::string& path : place->spellings) walk_.reached.emplace(path, &node);
    }
    return &node;
  }

  void readFolder(Task& task, std::vector<Task>& found, std::vector<Link>& links) {
    const int from = task.parent ? task.parent->fd() : AT_FDCWD;
    const int fd = ::openat(from, task.where->name.c_str(), kOpenFolder);
    task.parent.reset();
    if (fd < 0) {
      // An unreadable folder: du's partial figure, its own blocks counted where it was listed.
      if (errno == EMFILE || errno == ENFILE) descriptorsShort_.store(true);
      return;
    }
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
      if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) descriptorsShort_.store(true);
      ::close(fd);
      return;
    }
    auto self = std::make_shared<OpenFolder>(dir);
    const bool namesChildren = task.ownNode && task.node->listsChildren;
    std::vector<ino_t> listed;
    std::vector<Node*> named;
    const size_t firstLink = links.size();
    int64_t blocks = 0;
    uint32_t position = 0;
    while (const dirent* entry = ::readdir(dir)) {
      if (isDotOrDotDot(entry->d_name)) continue;
      if (stopped_.load(std::memory_order_relaxed)) return;
      const uint32_t here = position++;
      listed.push_back(entry->d_ino);
      struct stat st;
      // What cannot be looked at counts nothing, as du's "cannot access" line.
      if (::fstatat(self->fd(), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
      // -x: a mount point of another file system and all below it stay out.
      if (st.st_dev != device_) continue;
      const bool isFolder = S_ISDIR(st.st_mode);
      const Place* place = task.place ? task.place->find(entry->d_name) : nullptr;
      Node* node = task.node;
      const bool isNamed = (place && !place->spellings.empty()) || (isFolder && namesChildren);
      if (isNamed) {
        node = addNode(task.node, task.ownNode, entry->d_name, here, entry->d_ino, isFolder, place);
        named.push_back(node);
      }
      if (!isFolder && st.st_nlink > 1)
        links.push_back({st.st_dev, st.st_ino, static_cast<int64_t>(st.st_blocks), node, here, entry->d_ino});
      else if (isNamed)
        node->blocks.fetch_add(st.st_blocks, std::memory_order_relaxed);
      else
        blocks += st.st_blocks;
      if (isFolder)
        found.push_back({self, std::make_shared<PathLink>(PathLink{task.where, entry->d_name}), node,
                         isNamed, place});
    }
    task.node->blocks.fetch_add(blocks, std::memory_order_relaxed);
#ifdef __linux__
    if (listed.size() > kDuSortAbove && duSortsLargeFolders(self->fd())) {
      struct Ref {
        Node* node;
        uint32_t position;
        ino_t listedInode;
      };
      std::vector<Ref> refs;
      for (Node* n : named) refs.push_back({n, n->position, n->listedInode});
      reorderLikeDu(listed, std::span<Ref>(refs));
      for (const Ref& r : refs) r.node->position = r.position;
      reorderLikeDu(listed, std::span<Link>(links.data() + firstLink, links.size() - firstLink));
    }
#else
    (void)firstLink;
#endif
  }

  WalkEngine::Walk& walk_;
  const dev_t device_;
  std::mutex lock_;
  std::condition_variable wake_;       // workers: a folder to read, or the end
  std::condition_variable_any ended_;  // the caller: the end, or time to report
  std::vector<Task> pending_;
  unsigned busy_ = 0;
  bool finished_ = false;
  std::atomic<bool> stopped_{false};
  std::atomic<bool> descriptorsShort_{false};
  std::mutex nodesLock_;
  std::mutex atWorkLock_;
  std::shared_ptr<const PathLink> atWork_;
};

struct FileId {
  dev_t device;
  ino_t inode;
  bool operator==(const FileId&) const = default;
};
struct FileIdHash {
  size_t operator()(const FileId& id) const {
    return std::hash<uint64_t>()(static_cast<uint64_t>(id.inode) * 0x9E3779B97F4A7C15ULL ^
                                 static_cast<uint64_t>(id.device));
  }
};

}  // namespace

unsigned defaultWalkThreads() { return std::clamp(std::thread::hardware_concurrency(), 2u, 8u); }

WalkEngine::WalkEngine(unsigned threads) : threads_(std::max(threads, 1u)) {}
WalkEngine::~WalkEngine() = default;

void WalkEngine::prepare(const std::vector<DuQuestion>& questions, const WalkProgress& progress,
                         std::stop_token stop) {
  for (const DuQuestion& q : questions) {
    int& depth = asked_[q.path];
    depth = std::max(depth, q.depth);
  }
  std::vector<DuQuestion> order = questions;
  // A folder before anything inside it, so that the outermost question roots the walk.
  std::sort(order.begin(), order.end(), [](const DuQuestion& a, const DuQuestion& b) { return a.path < b.path; });
  for (const DuQuestion& q : order)
    if (!find(q.path, q.depth)) walkFrom(q.path, progress, stop);
}

std::optional<WalkEngine::Found> WalkEngine::find(const std::string& path, int depth) const {
  for (const auto& walk : walks_) {
    auto it = walk->reached.find(path);
    if (it != walk->reached.end() && (depth == 0 || it->second->listsChildren))
      return Found{walk.get(), it->second};
  }
  return std::nullopt;
}

void WalkEngine::walkFrom(const std::string& root, const WalkProgress& progress, std::stop_token stop) {
  throwIfCancelled(stop);
  auto walk = std::make_unique<Walk>();
  for (const auto& [path, depth] : asked_) {
    auto names = namesBelow(root, path);
    if (!names) continue;
    Place* place = &walk->places;
    for (const std::string& name : *names) place = &place->children[name];
    place->spellings.push_back(path);
    place->listsChildren = place->listsChildren || depth >= 1;
  }

  struct stat st;
  // du prints nothing for a path that is not there; nor does this walk.
  if (::lstat(root.c_str(), &st) == 0) {
    Node& top = walk->nodes.emplace_back();
    top.name = root;
    top.isFolder = S_ISDIR(st.st_mode);
    top.listsChildren = walk->places.listsChildren;
    top.blocks = st.st_blocks;
    for (const std::string& path : walk->places.spellings) walk->reached.emplace(path, &top);
    if (top.isFolder) {
      Walker walker(*walk, st.st_dev);
      walker.run({nullptr, std::make_shared<PathLink>(PathLink{nullptr, root}), &top, true, &walk->places},
                 threads_, progress, stop);
      if (walker.ranOutOfDescriptors())
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open),
                                "the walk ran out of file descriptors");
    }
    for (auto it = walk->nodes.rbegin(); it != walk->nodes.rend(); ++it) {
      it->total += it->blocks.load();
      if (it->parent) it->parent->total += it->total;
    }
  }
  walks_.push_back(std::move(walk));
}

std::vector<DuEntry> WalkEngine::du(const std::string& path, int depth, std::stop_token stop) {
  auto found = find(path, depth);
  if (!found) {
    int& asked = asked_[path];
    asked = std::max(asked, depth);
    walkFrom(path, {}, stop);
    found = find(path, depth);
  }
  if (!found) return {};
  const Node* root = found->node;

  // Each file with several names once in this answer, at the first name du meets: for a
  // depth-1 answer that decides which child folder's line carries it.
  struct First {
    uint32_t order;
    const Node* child;
    int64_t blocks;
  };
  std::unordered_map<FileId, First, FileIdHash> firsts;
  for (const Link& link : found->walk->links) {
    const Node* below = nullptr;
    const Node* n = link.node;
    while (n && n != root) {
      below = n;
      n = n->parent;
    }
    if (n != root) continue;
    const uint32_t order = below ? below->position : link.position;
    auto [it, added] = firsts.try_emplace(FileId{link.device, link.inode}, First{order, below, link.blocks});
    if (!added && order < it->second.order) it->second = First{order, below, link.blocks};
  }
  int64_t rootLinks = 0;
  std::unordered_map<const Node*, int64_t> childLinks;
  for (const auto& [id, first] : firsts) {
    rootLinks += first.blocks;
    if (first.child) childLinks[first.child] += first.blocks;
  }

  std::vector<DuEntry> entries;
  if (depth >= 1) {
    std::vector<const Node*> children;
    for (const Node& n : found->walk->nodes)
      if (n.parent == root && n.direct && n.isFolder) children.push_back(&n);
    std::sort(children.begin(), children.end(),
              [](const Node* a, const Node* b) { return a->position < b->position; });
    for (const Node* child : children) {
      auto it = childLinks.find(child);
      const int64_t extra = it == childLinks.end() ? 0 : it->second;
      entries.push_back({duBytes(child->total + extra), joinPath(path, child->name)});
    }
  }
  entries.push_back({duBytes(root->total + rootLinks), path});
  return entries;
}

}  // namespace vorlan
