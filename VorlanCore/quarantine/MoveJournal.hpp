// The intent log of a batch being filled or restored: every move is written down durably
// before it starts, and a move that copies says so again once its copy is whole in place, so
// that whatever a kill leaves can be settled with each item whole in one place.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "quarantine/FileMover.hpp"

namespace vorlan {

struct JournalEntry {
  std::string original;  // home-relative source
  std::string stored;    // batch-relative target
  std::string partial;   // name of a copy in progress, should the move copy: batch-relative
                         // when filling, home-relative when restoring
  bool placed = false;   // the copy was whole in its place before the source began to go
  bool operator==(const JournalEntry&) const = default;
};

// The entries of a journal's text: lines that are not whole JSON objects of the right keys are
// passed over (a kill may cut the last one), and a "placed" line marks the latest entry it names.
std::vector<JournalEntry> parseJournal(std::string_view text);

// One JSON object a line in a file inside the batch folder: ".vorlan-journal" while a batch is
// filled, ".vorlan-restore-journal" while one is restored. Whoever writes or reads
// it holds an exclusive lock on it; the system drops the lock when its holder dies, which is
// how a reader tells a dead writer's folder from a living one's.
class MoveJournal {
 public:
  static constexpr std::string_view fileName = ".vorlan-journal";
  static constexpr std::string_view restoreFileName = ".vorlan-restore-journal";

  MoveJournal() = default;
  ~MoveJournal();
  MoveJournal(MoveJournal&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  MoveJournal& operator=(MoveJournal&& other) noexcept;
  MoveJournal(const MoveJournal&) = delete;
  MoveJournal& operator=(const MoveJournal&) = delete;

  // A new, locked journal in a new batch folder; its name is flushed into the folder before
  // this returns. Throws std::system_error.
  static MoveJournal create(const DirHandle& batch, std::string_view name = fileName);

  enum class Opening { opened, missing, busy };
  // Opens the journal of an existing folder and takes its lock without waiting.
  static Opening openExisting(const DirHandle& batch, MoveJournal& into, std::string_view name = fileName);

  // Durable when it returns. Throws std::system_error; after a failure the journal may end in
  // a torn line, so the writer must not move anything more.
  void append(const JournalEntry& entry);
  // The copy of the entry with this `stored` path is whole in its place.
  void markPlaced(const std::string& stored);

  // All complete entries in the order written, each marked placed when a later line says so.
  // A line cut short by a crash, or that does not read as an entry, is passed over: its move
  // had not begun, or its copy counts as not yet placed.
  std::vector<JournalEntry> entries() const;

 private:
  explicit MoveJournal(int fd) : fd_(fd) {}
  void writeLine(const std::string& text);
  int fd_ = -1;
};

}  // namespace vorlan
