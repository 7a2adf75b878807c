// Answers a scan's `du -xk -d DEPTH PATH` questions from one walk of each folder tree, made by a
// small pool of threads, with the figures du itself would print. Built for one scan and used
// from one thread at a time; the walk's own threads live only inside prepare and du.
#pragma once
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "scan/ScanRecords.hpp"

namespace vorlan {

struct DuQuestion {
  std::string path;  // absolute, spelled as du would be given it
  int depth = 0;     // 0 or 1
  bool operator==(const DuQuestion&) const = default;
};

// The absolute path of the folder now being read. Called from the thread that called prepare
// or du, a few times a second at most, and once more when a walk has ended.
using WalkProgress = std::function<void(const std::string& folder)>;

// Threads for a walk: the machine's cores, at least 2, at most 8.
unsigned defaultWalkThreads();

class WalkEngine {
 public:
  explicit WalkEngine(unsigned threads = defaultWalkThreads());
  ~WalkEngine();
  WalkEngine(const WalkEngine&) = delete;
  WalkEngine& operator=(const WalkEngine&) = delete;

  // Walks every tree the questions need: each question that no earlier walk reached becomes the
  // root of a walk of its own (outside the first tree, past a mount point, behind a link).
  // Throws Cancelled when stopped (its threads joined), and std::system_error when the process
  // ran out of file descriptors, since a figure would then be short.
  void prepare(const std::vector<DuQuestion>& questions, const WalkProgress& progress,
               std::stop_token stop = {});

  // The entries `du -xk -d depth path` prints, in its order; empty when du would print none.
  // A question that prepare did not see is walked now, on its own. Throws as prepare does.
  std::vector<DuEntry> du(const std::string& path, int depth, std::stop_token stop = {});

  struct Walk;  // what one walk gathered; defined where it is filled

 private:
  struct Found;
  std::optional<Found> find(const std::string& path, int depth) const;
  void walkFrom(const std::string& root, const WalkProgress& progress, std::stop_token stop);

  unsigned threads_;
  std::map<std::string, int> asked_;  // path → deepest depth asked
  std::vector<std::unique_ptr<Walk>> walks_;
};

}  // namespace vorlan
