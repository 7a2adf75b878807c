#include "support/TestSupport.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char** environ;

namespace vorlan::test {

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "vorlan-test-XXXXXX").string();
  if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  path_ = std::filesystem::canonical(tmpl);
}

TempDir::~TempDir() {
  namespace fs = std::filesystem;
  std::error_code ec;
  // Tests make unreadable folders on purpose. Each folder is opened up when it is met, before
  // the walk enters it, so one pass reaches them all.
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  for (auto it = fs::recursive_directory_iterator(path_, ec);
       !ec && it != fs::recursive_directory_iterator(); it.increment(ec)) {
    if (it->is_directory(ec) && !it->is_symlink(ec))
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  }
  fs::remove_all(path_, ec);
}

void writeFile(const std::filesystem::path& path, const std::string& content) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void writeScript(const std::filesystem::path& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body);
  std::filesystem::permissions(path, std::filesystem::perms::owner_all |
                                         std::filesystem::perms::group_read |
                                         std::filesystem::perms::group_exec |
                                         std::filesystem::perms::others_read |
                                         std::filesystem::perms::others_exec);
}

ProcessOutcome runProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
  std::map<std::string, std::string> envMap;
  for (char** e = environ; *e; ++e) {
    std::string kv = *e;
    auto eq = kv.find('=');
    if (eq != std::string::npos) envMap[kv.substr(0, eq)] = kv.substr(eq + 1);
  }
  for (const auto& name : options.unsetEnv) envMap.erase(name);
  for (const auto& [k, v] : options.env) envMap[k] = v;
  std::vector<std::string> envStrings;
  for (const auto& [k, v] : envMap) envStrings.push_back(k + "=" + v);
  std::vector<char*> envp, args;
  for (auto& s : envStrings) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::vector<std::string> argCopy = argv;
  for (auto& s : argCopy) args.push_back(s.data());
  args.push_back(nullptr);

  int outPipe[2], errPipe[2], inPipe[2];
  if (::pipe2(outPipe, O_CLOEXEC) || ::pipe2(errPipe, O_CLOEXEC) || ::pipe2(inPipe, O_CLOEXEC))
    throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);
  if (options.stdinText)
    posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
  else
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  // Its own process group, so a test can signal the program and everything it started.
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
                                      POSIX_SPAWN_SETPGROUP);
  pid_t pid = 0;
  int rc = ::posix_spawn(&pid, args[0], &actions, &attr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  ::close(outPipe[1]);
  ::close(errPipe[1]);
  ::close(inPipe[0]);
  if (rc != 0) {
    ::close(outPipe[0]);
    ::close(errPipe[0]);
    ::close(inPipe[1]);
    throw std::runtime_error(std::string("spawn failed: ") + std::strerror(rc));
  }
  if (options.stdinText) {
    const std::string& text = *options.stdinText;
    size_t done = 0;
    while (done < text.size()) {
      ssize_t n = ::write(inPipe[1], text.data() + done, text.size() - done);
      if (n <= 0) break;
      done += static_cast<size_t>(n);
    }
  }
  ::close(inPipe[1]);

  ProcessOutcome outcome;
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::milliseconds(static_cast<int64_t>(options.timeoutSeconds * 1000));
  pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
  int open = 2;
  bool killed = false;
  char buf[65536];
  while (open > 0) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                    deadline - std::chrono::steady_clock::now())
                    .count();
    if (left <= 0) {
      ::kill(-pid, SIGKILL);
      killed = true;
      break;
    }
    if (::poll(fds, 2, static_cast<int>(left)) < 0) continue;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
      ssize_t n = ::read(fds[i].fd, buf, sizeof buf);
      if (n > 0) {
        (i == 0 ? outcome.out : outcome.err).append(buf, static_cast<size_t>(n));
      } else {
        ::close(fds[i].fd);
        fds[i].fd = -1;
        --open;
      }
    }
  }
  for (auto& f : fds)
    if (f.fd >= 0) ::close(f.fd);
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (killed) return {-1, outcome.out, outcome.err};
  outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

std::string cliPath() { return VORLAN_CLI_PATH; }

ProcessOutcome runCli(const std::filesystem::path& home, std::vector<std::string> args,
                      ProcessOptions options) {
  args.insert(args.begin(), cliPath());
  options.env["HOME"] = home.string();
  return runProcess(args, options);
}

void allocateFile(const std::filesystem::path& path, int64_t bytes) {
  std::filesystem::create_directories(path.parent_path());
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) throw std::runtime_error("cannot create " + path.string());
#if defined(__linux__)
  bool done = ::posix_fallocate(fd, 0, bytes) == 0;
#else  // no posix_fallocate: write the bytes
  const std::string zeros(1 << 20, '\0');
  bool done = true;
  for (int64_t left = bytes; left > 0 && done; left -= static_cast<int64_t>(zeros.size()))
    done = ::write(fd, zeros.data(), std::min<int64_t>(left, zeros.size())) > 0;
#endif
  ::close(fd);
  if (!done) throw std::runtime_error("cannot allocate " + path.string());
}

bool runningAsRoot() { return ::geteuid() == 0; }

}  // namespace vorlan::test
