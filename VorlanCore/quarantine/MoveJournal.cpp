#include "quarantine/MoveJournal.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <nlohmann/json.hpp>
#include <system_error>

#include "platform/FileReading.hpp"

namespace vorlan {
namespace {

[[noreturn]] void throwError(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

void flushDescriptor(int fd) {
#ifdef F_FULLFSYNC
  if (::fcntl(fd, F_FULLFSYNC) == 0) return;
#endif
  if (::fsync(fd) != 0) throwError(errno, "fsync");
}

}  // namespace

MoveJournal::~MoveJournal() {
  if (fd_ >= 0) ::close(fd_);
}

MoveJournal& MoveJournal::operator=(MoveJournal&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

MoveJournal MoveJournal::create(const DirHandle& batch, std::string_view fileName) {
  const std::string name(fileName);
  int fd = openRegularFileAt(batch.fd(), name, O_RDWR | O_APPEND | O_CREAT | O_EXCL, 0600);
  if (fd < 0) throwError(errno, name);
  MoveJournal journal(fd);
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) throwError(errno, name);
  flushDescriptor(fd);
  flushDescriptor(batch.fd());
  return journal;
}

MoveJournal::Opening MoveJournal::openExisting(const DirHandle& batch, MoveJournal& into, std::string_view fileName) {
  const std::string name(fileName);
  // Not a regular file (a pipe, a link): nothing this program wrote, so no journal at all.
  int fd = openRegularFileAt(batch.fd(), name, O_RDWR | O_APPEND);
  if (fd < 0 && errno == EINVAL) return Opening::missing;
  if (fd < 0) return errno == ENOENT ? Opening::missing : Opening::busy;
  MoveJournal journal(fd);
  if (::flock(fd, LOCK_EX | LOCK_NB) != 0) return Opening::busy;
  into = std::move(journal);
  return Opening::opened;
}

void MoveJournal::append(const JournalEntry& entry) {
  nlohmann::json line{{"original", entry.original}, {"partial", entry.partial}, {"stored", entry.stored}};
  writeLine(line.dump() + "\n");
}

void MoveJournal::markPlaced(const std::string& stored) { writeLine(nlohmann::json{{"placed", stored}}.dump() + "\n"); }

void MoveJournal::writeLine(const std::string& text) {
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::write(fd_, text.data() + done, text.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      throwError(errno, "journal");
    }
    done += static_cast<size_t>(n);
  }
  flushDescriptor(fd_);
}

std::vector<JournalEntry> MoveJournal::entries() const {
  std::string text;
  char buffer[16384];
  off_t at = 0;
  for (;;) {
    ssize_t n = ::pread(fd_, buffer, sizeof buffer, at);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    // A journal this long was not written by this program; what was read so far is used.
    if (n == 0 || text.size() > 4 * static_cast<size_t>(kSmallFileLimit)) break;
    text.append(buffer, static_cast<size_t>(n));
    at += n;
  }
  return parseJournal(text);
}

std::vector<JournalEntry> parseJournal(std::string_view text) {
  std::vector<JournalEntry> result;
  size_t start = 0;
  for (size_t end = text.find('\n'); end != std::string::npos; start = end + 1, end = text.find('\n', start)) {
    auto parsed = nlohmann::json::parse(text.begin() + static_cast<std::ptrdiff_t>(start),
                                        text.begin() + static_cast<std::ptrdiff_t>(end), nullptr, false);
    if (!parsed.is_object()) continue;
    auto text_of = [&](const char* key) -> const nlohmann::json* {
      auto it = parsed.find(key);
      return it != parsed.end() && it->is_string() ? &*it : nullptr;
    };
    if (const auto* placed = text_of("placed")) {
      for (auto it = result.rbegin(); it != result.rend(); ++it)
        if (it->stored == placed->get<std::string>()) {
          it->placed = true;
          break;
        }
      continue;
    }
    const auto* original = text_of("original");
    const auto* stored = text_of("stored");
    const auto* partial = text_of("partial");
    if (!original || !stored || !partial) continue;
    result.push_back({original->get<std::string>(), stored->get<std::string>(), partial->get<std::string>()});
  }
  return result;
}

}  // namespace vorlan
