#include "support/TestSupport.hpp"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace vorlan::test {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string tmpl = (fs::temp_directory_path() / "vorlan-test-XXXXXX").string();
  if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp failed");
  path_ = fs::canonical(tmpl);
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests make unreadable folders on purpose. Each folder is opened up when it is met, before
  // the walk enters it, so one pass reaches them all.
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ec);
  for (fs::recursive_directory_iterator it(path_, ec), end; !ec && it != end; it.increment(ec))
    if (it->is_directory(ec) && !it->is_symlink(ec))
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
  fs::remove_all(path_, ec);
}

void writeFile(const fs::path& path, const std::string& content) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!(out << content)) throw std::runtime_error("cannot write " + path.string());
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void writeScript(const fs::path& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body);
  fs::permissions(path, fs::perms{0755});
}

ProcessOutcome runProcess(const std::vector<std::string>& argv, const ProcessOptions& options) {
  std::map<std::string, std::string> env;
  for (char** e = environ; *e; ++e)
    if (const char* eq = std::strchr(*e, '=')) env[std::string(*e, size_t(eq - *e))] = eq + 1;
  for (const auto& name : options.unsetEnv) env.erase(name);
  for (const auto& [k, v] : options.env) env[k] = v;
  std::vector<std::string> strings = argv;  // the arguments, then the environment
  for (const auto& [k, v] : env) strings.push_back(k + "=" + v);
  std::vector<char*> args, envp;
  for (size_t i = 0; i < strings.size(); ++i) (i < argv.size() ? args : envp).push_back(strings[i].data());
  args.push_back(nullptr);
  envp.push_back(nullptr);

  // Without stdinText the child's stdin is a pipe closed at once: it reads end of file.
  int out[2], err[2], in[2];
  if (::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC) || ::pipe2(in, O_CLOEXEC))
    throw std::runtime_error("pipe failed");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const auto& [from, to] : {std::pair{in[0], 0}, {out[1], 1}, {err[1], 2}})
    posix_spawn_file_actions_adddup2(&actions, from, to);
  // Default signals, and its own process group, so a test can signal the program and
  // everything it started.
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, all;
  sigemptyset(&none);
  sigfillset(&all);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &all);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
  pid_t pid = 0;
  const int rc = ::posix_spawn(&pid, args[0], &actions, &attr, args.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  for (int fd : {in[0], out[1], err[1]}) ::close(fd);
  if (rc != 0) {
    for (int fd : {in[1], out[0], err[0]}) ::close(fd);
    throw std::runtime_error(std::string("spawn failed: ") + std::strerror(rc));
  }
  // Both outputs are read while stdin is written, so that no pipe can fill up and stall the child.
  const auto drain = [](int fd) {
    std::string text;
    char buffer[65536];
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) > 0;) text.append(buffer, size_t(n));
    ::close(fd);
    return text;
  };
  auto outText = std::async(std::launch::async, drain, out[0]), errText = std::async(std::launch::async, drain, err[0]);
  const std::string text = options.stdinText.value_or("");
  for (ssize_t done = 0, n = 0; done < ssize_t(text.size()); done += n)
    if ((n = ::write(in[1], text.data() + done, text.size() - size_t(done))) <= 0) break;
  ::close(in[1]);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(int64_t(options.timeoutSeconds * 1000));
  const bool late = outText.wait_until(deadline) == std::future_status::timeout ||
                    errText.wait_until(deadline) == std::future_status::timeout;
  if (late) ::kill(-pid, SIGKILL);
  ProcessOutcome outcome{-1, outText.get(), errText.get()};
  int status = 0;
  ::waitpid(pid, &status, 0);
  if (!late) outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

std::string cliPath() { return VORLAN_CLI_PATH; }

ProcessOutcome runCli(const fs::path& home, std::vector<std::string> args, ProcessOptions options) {
  args.insert(args.begin(), cliPath());
  options.env["HOME"] = home.string();
  return runProcess(args, options);
}

void allocateFile(const fs::path& path, int64_t bytes) {
  fs::create_directories(path.parent_path());
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
#if defined(__linux__)
  bool done = fd >= 0 && ::posix_fallocate(fd, 0, bytes) == 0;
#else  // no posix_fallocate: write the bytes
  const std::string zeros(1 << 20, '\0');
  bool done = fd >= 0;
  for (int64_t left = bytes; left > 0 && done; left -= int64_t(zeros.size()))
    done = ::write(fd, zeros.data(), left < int64_t(zeros.size()) ? size_t(left) : zeros.size()) > 0;
#endif
  if (fd >= 0) ::close(fd);
  if (!done) throw std::runtime_error("cannot allocate " + path.string());
}

bool runningAsRoot() { return ::geteuid() == 0; }

}  // namespace vorlan::test
