#include "scan/OutputCollector.hpp"

#include <utility>

namespace vorlan {

OutputCollector::OutputCollector(LineCallback onLine) : onLine_(std::move(onLine)) {}

void OutputCollector::feed(std::string_view bytes) {
  std::lock_guard guard(lock_);
  // Bytes before the old end hold no line feed past lineStart_ (else they would have ended a
  // line already), so only the new bytes are searched: a long line arriving in many pieces
  // is not scanned over and over.
  size_t searchFrom = data_.size();
  data_.append(bytes);
  if (!onLine_) return;
  for (;;) {
    const size_t lineFeed = data_.find('\n', searchFrom);
    if (lineFeed == std::string::npos) return;
    const std::string_view line(data_.data() + lineStart_, lineFeed - lineStart_);
    lineStart_ = lineFeed + 1;
    searchFrom = lineStart_;
    if (!isValidUtf8(line)) continue;
    try {
      onLine_(std::string(line));
    } catch (...) {
      // The caller's own failure; the runner rethrows it once the child is gone.
      callbackError_ = std::current_exception();
      onLine_ = nullptr;
      return;
    }
  }
}

std::string OutputCollector::takeText() {
  std::lock_guard guard(lock_);
  std::string all = std::exchange(data_, {});
  lineStart_ = 0;
  if (!isValidUtf8(all)) return {};
  return all;
}

std::exception_ptr OutputCollector::callbackError() const {
  std::lock_guard guard(lock_);
  return callbackError_;
}

}  // namespace vorlan
