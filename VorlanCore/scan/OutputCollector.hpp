// Gathers one output stream of a child process and hands over its complete lines while the
// child still runs.
#pragma once
#include <cstddef>
#include <exception>
#include <mutex>
#include <string>
#include <string_view>

#include "platform/Utf8Text.hpp"
#include "scan/ToolRunning.hpp"

namespace vorlan {

// One per stream of one child. Only a line feed ends a line (a carriage return stays in the
// text); a line that is not valid UTF-8 is skipped; the last piece without a line feed is never
// handed over as a line but stays part of the whole text. Line callbacks run under the
// collector's lock, so they never overlap and arrive in order; they must not call back in.
class OutputCollector {
 public:
  explicit OutputCollector(LineCallback onLine = {});
  OutputCollector(const OutputCollector&) = delete;
  OutputCollector& operator=(const OutputCollector&) = delete;

  void feed(std::string_view bytes);
  // The whole stream, or empty text when it is not valid UTF-8 as a whole. Empties the collector.
  std::string takeText();
  // What the line callback threw first, if it did. No line is handed over after that.
  std::exception_ptr callbackError() const;

 private:
  mutable std::mutex lock_;
  std::string data_;
  size_t lineStart_ = 0;  // first byte not yet handed over as part of a line
  LineCallback onLine_;
  std::exception_ptr callbackError_;
};

}  // namespace vorlan
