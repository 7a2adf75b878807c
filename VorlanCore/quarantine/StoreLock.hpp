// One store operation at a time, across processes: the command line and the desktop app take
// the same exclusive lock on "lock" in the folder that holds the quarantine (~/.vorlan). The
// system drops the lock when its holder dies, so a killed run never leaves the store locked.
#pragma once

#include "quarantine/FileMover.hpp"

namespace vorlan {

class StoreLock {
 public:
  static constexpr std::string_view fileName = "lock";

  StoreLock() = default;
  ~StoreLock();
  StoreLock(StoreLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  StoreLock& operator=(StoreLock&& other) noexcept;
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

  // Takes the lock in `folder`, waiting up to `waitMilliseconds` for another holder to finish;
  // QuarantineError storeBusy after that. std::system_error when the file can't be opened.
  static StoreLock acquire(const DirHandle& folder, int waitMilliseconds);

 private:
  explicit StoreLock(int fd) : fd_(fd) {}
  int fd_ = -1;
};

}  // namespace vorlan
