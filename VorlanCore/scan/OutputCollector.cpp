#include "scan/OutputCollector.hpp"

#include <utility>

namespace vorlan {

bool isValidUtf8(std::string_view bytes) {
  const size_t n = bytes.size();
  size_t i = 0;
  while (i < n) {
    const auto lead = static_cast<unsigned char>(bytes[i]);
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length = 0;
    char32_t code = 0;
    char32_t smallest = 0;
    if ((lead & 0xE0) == 0xC0) {
      length = 2, code = lead & 0x1Fu, smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
      length = 3, code = lead & 0x0Fu, smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
      length = 4, code = lead & 0x07u, smallest = 0x10000;
    } else {
      return false;
    }
    if (n - i < length) return false;
    for (size_t k = 1; k < length; ++k) {
      const auto next = static_cast<unsigned char>(bytes[i + k]);
      if ((next & 0xC0) != 0x80) return false;
      code = (code << 6) | (next & 0x3Fu);
    }
    if (code < smallest || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return false;
    i += length;
  }
  return true;
}

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
