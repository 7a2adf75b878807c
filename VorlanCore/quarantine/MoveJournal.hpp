// The intent log of a batch being filled: every move is written down durably before it starts,
// so that a batch folder left without a manifest can be put back where it came from.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "quarantine/FileMover.hpp"

namespace vorlan {

struct JournalEntry {
  std::string original;  // home-relative source
  std::string stored;    // batch-relative target
  std::string partial;   // batch-relative name of a copy in progress, should the move copy
  bool operator==(const JournalEntry&) const = default;
};

// One JSON object a line in ".vorlan-journal" inside the batch folder. Whoever writes or reads
// it holds an exclusive lock on it; the system drops the lock when its holder dies, which is
// how a reader tells a dead writer's folder from a living one's.
class MoveJournal {
 public:
  static constexpr std::string_view fileName = ".vorlan-journal";

  MoveJournal() = default;
  ~MoveJournal();
  MoveJournal(MoveJournal&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  MoveJournal& operator=(MoveJournal&& other) noexcept;
  MoveJournal(const MoveJournal&) = delete;
  MoveJournal& operator=(const MoveJournal&) = delete;

  // A new, locked journal in a new batch folder; its name is flushed into the folder before
  // this returns. Throws std::system_error.
  static MoveJournal create(const DirHandle& batch);

  enum class Opening { opened, missing, busy };
  // Opens the journal of an existing folder and takes its lock without waiting.
  static Opening openExisting(const DirHandle& batch, MoveJournal& into);

  // Durable when it returns. Throws std::system_error; after a failure the journal may end in
  // a torn line, so the writer must not move anything more.
  void append(const JournalEntry& entry);

  // All complete entries in the order written. A line cut short by a crash, or that does not
  // read as an entry, is passed over: its move had not begun.
  std::vector<JournalEntry> entries() const;

 private:
  explicit MoveJournal(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace vorlan
