// What every subcommand of the command line shares: its context, error lines, the progress
// line on stderr and Ctrl-C turned into a stop request.
#pragma once
#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "scan/ScanRecords.hpp"  // formatGB

namespace vorlan::cli {

struct CliContext {
  std::filesystem::path home;
  bool stdinIsTerminal = false;
  bool stdoutIsTerminal = false;
  bool stderrIsTerminal = false;
  std::stop_token stop;  // requested by Ctrl-C
  int64_t now = 0;       // seconds since 1970, read once at start
};

inline constexpr int exitOk = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;
inline constexpr int exitCancelled = 130;

// One Korean line on stderr, then a hint to the help text; returns exitUsage.
int usageError(std::string_view line);
// One Korean line on stderr; returns exitFailure.
int failure(std::string_view line);
// One Korean line on stderr that is worth knowing but changes nothing.
void warn(std::string_view line);

// Progress on stderr: one redrawn line on a terminal, plain lines otherwise, nothing when off.
// Safe to call from any thread.
class ProgressLine {
 public:
  enum class Mode { off, terminal, plain };
  explicit ProgressLine(Mode mode) : mode_(mode) {}
  ~ProgressLine() { finish(); }
  void show(std::string_view text);
  void finish();  // ends a redrawn line so the next output starts clean

 private:
  Mode mode_;
  std::mutex lock_;
  bool drawn_ = false;
  std::string lastPlain_;
};

ProgressLine::Mode progressModeFor(const CliContext& ctx, bool disabled);

// Turns SIGINT and SIGTERM into a stop request; a second SIGINT ends the process at once, and a
// SIGTERM a moment later if the command has not ended by then. Construct before any thread starts:
// it blocks the signals for the whole process and waits for them on a thread of its own.
class InterruptWatcher {
 public:
  InterruptWatcher();
  ~InterruptWatcher();
  std::stop_token token() const { return source_.get_token(); }

 private:
  std::stop_source source_;
  std::jthread waiter_;
};

// Asks a yes/no question on the terminal; only an explicit yes is yes. Ctrl-C answers no.
bool confirmOnTerminal(std::string_view question, const CliContext& ctx);

// Display width of a UTF-8 text in terminal columns (Hangul and CJK count two).
int displayWidth(std::string_view text);
// Cuts a UTF-8 text to at most `columns` terminal columns, never inside a character.
std::string fitToColumns(std::string_view text, int columns);


}  // namespace vorlan::cli
