#include "CliSupport.hpp"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>

#include "platform/Utf8Text.hpp"
#include "scan/ScanRecords.hpp"

namespace vorlan::cli {

int usageError(std::string_view line) {
  fmt::print(stderr, "vorlan: {}\n도움말: vorlan --help\n", line);
  return exitUsage;
}

int failure(std::string_view line) {
  fmt::print(stderr, "vorlan: {}\n", line);
  return exitFailure;
}

void warn(std::string_view line) { fmt::print(stderr, "vorlan: {}\n", line); }

namespace {

int terminalColumns() {
  winsize ws{};
  if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 10) return ws.ws_col;
  return 80;
}

// Width of one code point: wide East Asian ranges count two columns.
int codePointWidth(char32_t cp) {
  if (cp < 0x20) return 0;
  if ((cp >= 0x1100 && cp <= 0x115F) || (cp >= 0x2E80 && cp <= 0xA4CF) ||
      (cp >= 0xAC00 && cp <= 0xD7A3) || (cp >= 0xF900 && cp <= 0xFAFF) ||
      (cp >= 0xFE30 && cp <= 0xFE4F) || (cp >= 0xFF00 && cp <= 0xFF60) ||
      (cp >= 0xFFE0 && cp <= 0xFFE6) || (cp >= 0x1F300 && cp <= 0x1FAFF) ||
      (cp >= 0x20000 && cp <= 0x3FFFD))
    return 2;
  return 1;
}

// One character at text[i]; a byte that is not UTF-8 counts as one narrow character.
size_t decodeAt(std::string_view text, size_t i, char32_t& cp) {
  const Utf8Char c = decodeUtf8At(text, i);
  if (c.length == 0) {
    cp = static_cast<unsigned char>(text[i]);
    return 1;
  }
  cp = c.codePoint;
  return c.length;
}

}  // namespace

int displayWidth(std::string_view text) {
  int width = 0;
  for (size_t i = 0; i < text.size();) {
    char32_t cp;
    i += decodeAt(text, i, cp);
    width += codePointWidth(cp);
  }
  return width;
}

std::string fitToColumns(std::string_view text, int columns) {
  int width = 0;
  size_t i = 0;
  while (i < text.size()) {
    char32_t cp;
    size_t len = decodeAt(text, i, cp);
    int w = codePointWidth(cp);
    if (width + w > columns) break;
    width += w;
    i += len;
  }
  return std::string(text.substr(0, i));
}


void ProgressLine::show(std::string_view text) {
  if (mode_ == Mode::off) return;
  std::lock_guard guard(lock_);
  if (mode_ == Mode::plain) {
    if (text == lastPlain_) return;
    lastPlain_ = std::string(text);
    fmt::print(stderr, "{}\n", text);
    return;
  }
  fmt::print(stderr, "\r\033[K{}", fitToColumns(text, terminalColumns() - 1));
  std::fflush(stderr);
  drawn_ = true;
}

void ProgressLine::finish() {
  std::lock_guard guard(lock_);
  if (mode_ == Mode::terminal && drawn_) {
    fmt::print(stderr, "\r\033[K");
    std::fflush(stderr);
    drawn_ = false;
  }
}

ProgressLine::Mode progressModeFor(const CliContext& ctx, bool disabled) {
  if (disabled) return ProgressLine::Mode::off;
  return ctx.stderrIsTerminal ? ProgressLine::Mode::terminal : ProgressLine::Mode::plain;
}

// SIGUSR2 sent by the destructor to the waiting thread itself means "stop waiting": a blocking
// wait with no polling interval costs nothing while a command runs and nothing at exit.
//
// A first Ctrl-C asks the command to stop and lets it finish what it must (a move in progress
// ends cleanly); a second one ends the process at once. SIGTERM asks the same and then allows
// at most a moment: the main thread may be stuck in a system call that no stop request reaches,
// and every move is journaled, so ending the process there loses nothing.
InterruptWatcher::InterruptWatcher() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  waiter_ = std::jthread([source = source_, set]() mutable {
    std::optional<timespec> deadline;  // absent: wait for as long as the command runs
    for (;;) {
      siginfo_t info{};
      const int sig = deadline ? sigtimedwait(&set, &info, &*deadline) : sigwaitinfo(&set, &info);
      if (sig < 0 && errno == EAGAIN) std::_Exit(exitCancelled);
      if (sig == SIGUSR2) return;
      if (sig != SIGINT && sig != SIGTERM) continue;
      // A second interrupt while the first is being served: leave at once.
      if (source.stop_requested()) std::_Exit(exitCancelled);
      source.request_stop();
      if (sig == SIGTERM) deadline = timespec{0, 700'000'000};
    }
  });
}

InterruptWatcher::~InterruptWatcher() {
  ::pthread_kill(waiter_.native_handle(), SIGUSR2);
  waiter_.join();
}

bool confirmOnTerminal(std::string_view question, const CliContext& ctx) {
  fmt::print("{} [y/N] ", question);
  std::fflush(stdout);
  std::string answer;
  for (;;) {
    if (ctx.stop.stop_requested()) {
      fmt::print("\n");
      return false;
    }
    pollfd in{STDIN_FILENO, POLLIN, 0};
    int ready = ::poll(&in, 1, 100);
    if (ready <= 0) continue;
    char c;
    ssize_t n = ::read(STDIN_FILENO, &c, 1);
    if (n <= 0 || c == '\n') break;
    answer += c;
  }
  while (!answer.empty() && (answer.back() == ' ' || answer.back() == '\r')) answer.pop_back();
  while (!answer.empty() && answer.front() == ' ') answer.erase(answer.begin());
  return answer == "y" || answer == "Y" || answer == "yes" || answer == "YES" || answer == "예" ||
         answer == "네" || answer == "ㅇ";
}

}  // namespace vorlan::cli
