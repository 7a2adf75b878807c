#include "scan/ProcessToolRunner.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "scan/OutputCollector.hpp"

extern char** environ;

namespace vorlan {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kEnvTool = "/usr/bin/env";
// What env exits with when it cannot find the tool.
constexpr int kNotFoundStatus = 127;

std::system_error systemError(int code, const char* what) {
  return std::system_error(code, std::generic_category(), what);
}

class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Fd& operator=(Fd&&) = delete;
  ~Fd() { reset(); }
  int get() const { return fd_; }
  void reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

struct Pipe {
  Fd readEnd;
  Fd writeEnd;
};

Pipe makePipe() {
  int fds[2];
#if defined(__APPLE__)
  // No pipe2 here; the spawn below uses POSIX_SPAWN_CLOEXEC_DEFAULT, so our own children never
  // see these ends even in the moment before FD_CLOEXEC is set.
  if (::pipe(fds) != 0) throw systemError(errno, "pipe");
  ::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
  if (::pipe2(fds, O_CLOEXEC) != 0) throw systemError(errno, "pipe2");
#endif
  return {Fd(fds[0]), Fd(fds[1])};
}

void setNonBlocking(int fd) { ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK); }

// Our environment with PATH replaced. Read afresh for every run, as the environment may change.
std::vector<std::string> childEnvironment() {
  std::optional<std::string_view> ownPath;
  std::vector<std::string> env;
  for (char** entry = environ; entry && *entry; ++entry) {
    std::string_view text(*entry);
    if (text.starts_with("PATH=")) {
      if (!ownPath) ownPath = text.substr(5);  // the first one is the one getenv would see
      continue;
    }
    env.emplace_back(text);
  }
  env.push_back("PATH=" + toolSearchPath(ownPath));
  return env;
}

// The child as the threads of one run see it. A signal goes out only under `lock_` and only
// while `ended_` is false. `ended_` is set once the waiting thread has seen the child end,
// and the child is not reaped before that, so until then its pid cannot belong to anyone else.
class ChildControl {
 public:
  ChildControl(pid_t pid, int wakeFd, std::chrono::milliseconds grace)
      : pid_(pid), wakeFd_(wakeFd), grace_(grace) {}

  // Cancellation, or a line callback that failed.
  void terminate() {
    std::lock_guard guard(lock_);
    if (ended_) return;
    sendTerminate();
    poke();  // the reader sleeps in poll with the deadlines it knew; now there is a kill deadline
  }

  void fireTimeout() {
    std::lock_guard guard(lock_);
    if (ended_ || fired_) return;
    // A child that has just exited, before the waiting thread got to it, finished in time.
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
        info.si_pid == pid_)
      return;
    fired_ = true;
    sendTerminate();
  }

  // A tool that ignores SIGTERM would otherwise keep a timed-out or cancelled run, and with
  // it the whole scan, waiting for ever; so it gets SIGKILL once the grace period is over.
  void killIfStubborn(Clock::time_point now) {
    std::lock_guard guard(lock_);
    if (ended_ || killed_ || !terminatedAt_ || now < *terminatedAt_ + grace_) return;
    ::kill(pid_, SIGKILL);
    killed_ = true;
  }

  // Clock::time_point::max() when no kill is due.
  Clock::time_point killDeadline() const {
    std::lock_guard guard(lock_);
    if (ended_ || killed_ || !terminatedAt_) return Clock::time_point::max();
    return *terminatedAt_ + grace_;
  }

  void markEnded() {
    {
      std::lock_guard guard(lock_);
      ended_ = true;
    }
    poke();
  }

  bool ended() const {
    std::lock_guard guard(lock_);
    return ended_;
  }

  bool fired() const {
    std::lock_guard guard(lock_);
    return fired_;
  }

 private:
  // Wakes the reader to look at this object again. A byte, not the closing of the pipe: a
  // descriptor that some other child picked up would keep the end of file from ever coming.
  void poke() const {
    const char byte = 1;
    [[maybe_unused]] auto ignored = ::write(wakeFd_, &byte, 1);
  }

  void sendTerminate() {
    ::kill(pid_, SIGTERM);
    if (!terminatedAt_) terminatedAt_ = Clock::now();
  }

  mutable std::mutex lock_;
  const pid_t pid_;
  const int wakeFd_;
  const std::chrono::milliseconds grace_;
  bool ended_ = false;
  bool fired_ = false;
  bool killed_ = false;
  std::optional<Clock::time_point> terminatedAt_;
};

struct ReaderJob {
  int outFd;
  int errFd;
  int wakeFd;  // a byte on it means "look at the child again"
  OutputCollector& out;
  OutputCollector& err;
  ChildControl& child;
  Clock::time_point deadline;  // the time limit; Clock::time_point::max() for none
};

int millisecondsUntil(Clock::time_point when, Clock::time_point now) {
  if (when == Clock::time_point::max()) return -1;
  if (when <= now) return 0;
  // Rounded up, so that poll does not wake just before the deadline and spin.
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(when - now).count();
  return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// Drains both pipes while the child runs, so that a child with much output on both streams
// never blocks on a full pipe, and keeps the time limit and the kill deadline.
void readUntilEnded(ReaderJob job) {
  std::array<pollfd, 3> fds{{{job.outFd, POLLIN, 0}, {job.errFd, POLLIN, 0}, {job.wakeFd, POLLIN, 0}}};
  OutputCollector* collectors[2] = {&job.out, &job.err};
  std::string buffer(64 * 1024, '\0');
  bool callbackFailed = false;

  // Bytes read; 0 when nothing is there now or the stream has ended.
  auto readOnce = [&](size_t stream) -> size_t {
    ssize_t n = 0;
    do {
      n = ::read(fds[stream].fd, buffer.data(), buffer.size());
    } while (n < 0 && errno == EINTR);
    if (n > 0) {
      collectors[stream]->feed(std::string_view(buffer.data(), static_cast<size_t>(n)));
      if (stream == 0 && !callbackFailed && job.out.callbackError()) {
        callbackFailed = true;
        job.child.terminate();
      }
      return static_cast<size_t>(n);
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return 0;
    fds[stream].fd = -1;  // end of the stream, or a broken one; poll skips negative descriptors
    return 0;
  };

  for (;;) {
    const auto now = Clock::now();
    if (now >= job.deadline) {
      job.child.fireTimeout();
      job.deadline = Clock::time_point::max();
    }
    job.child.killIfStubborn(now);
    const auto next = std::min(job.deadline, job.child.killDeadline());
    if (::poll(fds.data(), fds.size(), millisecondsUntil(next, now)) < 0) {
      if (errno != EINTR) std::this_thread::sleep_for(std::chrono::milliseconds(10));
      continue;
    }
    for (size_t stream = 0; stream < 2; ++stream) {
      if (fds[stream].fd >= 0 && (fds[stream].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)))
        readOnce(stream);
    }
    if (fds[2].revents & (POLLIN | POLLHUP | POLLERR | POLLNVAL)) {
      char pokes[64];
      while (::read(job.wakeFd, pokes, sizeof pokes) > 0) {
      }
      if (job.child.ended()) break;
    }
  }

  // The child has ended, so everything it wrote is in the pipes now. Take what is there and
  // stop: waiting for end of file would let a background process the tool left behind, still
  // holding the pipe, keep the run waiting. No pipe holds more than a few MiB, so more than
  // that comes from such a process writing on, and is not waited for either.
  constexpr size_t kMostAPipeHolds = 4 << 20;
  for (size_t stream = 0; stream < 2; ++stream) {
    size_t drained = 0;
    while (fds[stream].fd >= 0 && drained <= kMostAPipeHolds) {
      const size_t n = readOnce(stream);
      if (n == 0) break;
      drained += n;
    }
  }
}

// Waits until the child has ended without reaping it. False when it is no longer our child.
bool waitUntilEnded(pid_t pid) {
  for (;;) {
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) == 0) return true;
    if (errno != EINTR) return false;
  }
}

std::optional<int> reap(pid_t pid) {
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return std::nullopt;
  }
  return status;
}

int32_t returncodeOf(std::optional<int> status) {
  if (!status) return -1;
  if (WIFEXITED(*status)) return WEXITSTATUS(*status);
  if (WIFSIGNALED(*status)) return WTERMSIG(*status);
  return -1;
}

class SpawnSetup {
 public:
  SpawnSetup(int outFd, int errFd) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attr_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, outFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, errFd, STDERR_FILENO);
    // The vorlan command blocks SIGINT and SIGTERM in every thread and may ignore others; a
    // child inheriting that could not be terminated. It starts with nothing blocked and every
    // signal at its default.
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attr_, &none);
    sigset_t all;
    sigfillset(&all);
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    posix_spawnattr_setsigdefault(&attr_, &all);
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
#if defined(__APPLE__)
    flags |= POSIX_SPAWN_CLOEXEC_DEFAULT;
#endif
    posix_spawnattr_setflags(&attr_, flags);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attr_);
  }
  SpawnSetup(const SpawnSetup&) = delete;
  SpawnSetup& operator=(const SpawnSetup&) = delete;

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attr() const { return &attr_; }

 private:
  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attr_;
};

Clock::time_point deadlineAfter(std::optional<double> seconds, Clock::time_point start) {
  if (!seconds) return Clock::time_point::max();
  // Zero, negative or NaN fire at once; anything beyond a year is as good as none.
  const double clamped = std::isnan(*seconds) ? 0.0 : std::clamp(*seconds, 0.0, 365.0 * 86400);
  return start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(clamped));
}

}  // namespace

ProcessToolRunner::ProcessToolRunner(std::chrono::milliseconds killGrace) : killGrace_(killGrace) {}

ToolResult ProcessToolRunner::run(const std::vector<std::string>& arguments,
                                  std::optional<double> timeout, std::stop_token stop) {
  return launch(arguments, timeout, {}, std::move(stop));
}

ToolResult ProcessToolRunner::runStreaming(const std::vector<std::string>& arguments,
                                           const LineCallback& onLine, std::stop_token stop) {
  return launch(arguments, std::nullopt, onLine, std::move(stop));
}

ToolResult ProcessToolRunner::launch(const std::vector<std::string>& arguments,
                                     std::optional<double> timeout, const LineCallback& onLine,
                                     std::stop_token stop) const {
  // env with no arguments would print the environment; there is no tool to run.
  if (arguments.empty()) throw ToolError::notFound("");

  std::vector<std::string> env = childEnvironment();
  std::vector<char*> argv{const_cast<char*>(kEnvTool)};
  for (const auto& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (auto& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);

  Pipe out = makePipe();
  Pipe err = makePipe();
  Pipe wake = makePipe();
  setNonBlocking(out.readEnd.get());
  setNonBlocking(err.readEnd.get());
  setNonBlocking(wake.readEnd.get());
  setNonBlocking(wake.writeEnd.get());

  pid_t pid = 0;
  {
    SpawnSetup setup(out.writeEnd.get(), err.writeEnd.get());
    const int rc = ::posix_spawn(&pid, kEnvTool, setup.actions(), setup.attr(), argv.data(), envp.data());
    if (rc != 0) throw systemError(rc, "posix_spawn /usr/bin/env");
  }
  // Only the child writes now; our copies would keep the end of its output from ever showing.
  out.writeEnd.reset();
  err.writeEnd.reset();

  ChildControl child(pid, wake.writeEnd.get(), killGrace_);
  OutputCollector outCollector(onLine);
  OutputCollector errCollector;
  std::thread reader;
  try {
    reader = std::thread(readUntilEnded,
                         ReaderJob{out.readEnd.get(), err.readEnd.get(), wake.readEnd.get(),
                                   outCollector, errCollector, child,
                                   deadlineAfter(timeout, Clock::now())});
  } catch (...) {
    ::kill(pid, SIGKILL);
    reap(pid);
    throw;
  }

  bool stillOurs = false;
  {
    // Runs at once if the stop came before the launch.
    std::stop_callback onStop(stop, [&child] { child.terminate(); });
    stillOurs = waitUntilEnded(pid);
    child.markEnded();
  }
  const std::optional<int> status = stillOurs ? reap(pid) : std::nullopt;
  reader.join();

  if (auto failure = outCollector.callbackError()) std::rethrow_exception(failure);
  if (child.fired()) throw ToolError::timeout(arguments);
  const int32_t returncode = returncodeOf(status);
  // A tool that itself exits 127 looks the same as one env could not find, and is treated so.
  if (status && WIFEXITED(*status) && returncode == kNotFoundStatus)
    throw ToolError::notFound(arguments.front());
  return ToolResult{returncode, outCollector.takeText(), errCollector.takeText()};
}

std::string toolSearchPath(std::optional<std::string_view> ownPath) {
  // An empty PATH would leave an empty last piece, which env takes for the current folder.
  const std::string_view rest =
      ownPath && !ownPath->empty() ? *ownPath : std::string_view("/usr/bin:/bin:/usr/sbin:/sbin");
  return "/opt/homebrew/bin:/usr/local/bin:" + std::string(rest);
}

bool hasBinaryOnPath(const std::string& name, std::string_view pathText) {
  auto isExecutableFile = [&](std::string_view folder) {
    const std::string candidate = std::string(folder) + "/" + name;
    struct stat info {};
    return ::access(candidate.c_str(), X_OK) == 0 && ::stat(candidate.c_str(), &info) == 0 &&
           S_ISREG(info.st_mode);
  };
  if (isExecutableFile("/opt/homebrew/bin") || isExecutableFile("/usr/local/bin")) return true;
  while (!pathText.empty()) {
    const size_t colon = pathText.find(':');
    const std::string_view piece = pathText.substr(0, colon);
    if (!piece.empty() && isExecutableFile(piece)) return true;
    if (colon == std::string_view::npos) break;
    pathText.remove_prefix(colon + 1);
  }
  return isExecutableFile("/usr/bin") || isExecutableFile("/bin");
}

bool defaultHasBinary(const std::string& name) {
  const char* path = std::getenv("PATH");
  return hasBinaryOnPath(name, path ? path : "");
}

}  // namespace vorlan
