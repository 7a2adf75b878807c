#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

#include "scan/OutputCollector.hpp"
#include "scan/ProcessToolRunner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using test::TempDir;
using test::writeScript;
using namespace std::chrono_literals;

// Long enough that a run waiting for it is a hang, not a slow test.
constexpr auto kHangBound = 15s;

std::string script(const TempDir& dir, const std::string& name, const std::string& body) {
  writeScript(dir / name, body);
  return (dir / name).string();
}

// No child of ours is left, running or zombie.
bool noChildLeft() {
  int status = 0;
  return ::waitpid(-1, &status, WNOHANG) == -1 && errno == ECHILD;
}

template <class F>
std::optional<ToolError> toolErrorOf(F&& call) {
  try {
    call();
  } catch (const ToolError& e) {
    return e;
  }
  return std::nullopt;
}

size_t openDescriptors() {
  const char* folder = std::filesystem::exists("/proc/self/fd") ? "/proc/self/fd" : "/dev/fd";
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                           std::filesystem::directory_iterator()));
}

TEST(OutputCollector, HandsOverCompleteValidLinesOnly) {
  struct Case {
    std::vector<std::string> chunks;
    std::vector<std::string> lines;
    std::string text;
  };
  const Case cases[] = {
      {{"a\r\n", "\n", "x\n"}, {"a\r", "", "x"}, "a\r\n\nx\n"},
      {{"\xed\xa0\x80\n", "\xc0\xaf\n", "\xf4\x90\x80\x80\n"}, {}, ""},  // surrogate, overlong, too big
      {{"한", "\xea", "\xb8\x80\n"}, {"한글"}, "한글\n"},  // a character split between reads
      {{}, {}, ""},
  };
  for (const auto& c : cases) {
    std::vector<std::string> lines;
    OutputCollector collector([&](const std::string& line) { lines.push_back(line); });
    for (const auto& chunk : c.chunks) collector.feed(chunk);
    EXPECT_EQ(lines, c.lines) << c.text;
    EXPECT_EQ(collector.takeText(), c.text);
  }
}

TEST(ProcessToolRunner, ReportsExitStatusSignalAndBothStreams) {
  TempDir dir;
  struct Case {
    std::string body;
    int32_t returncode;
    std::string out, err;
  };
  const Case cases[] = {
      {"printf 'hi %s\\n' \"$1\"; printf 'warn' >&2\n", 0, "hi arg\n", "warn"},
      {"echo partial; exit 3\n", 3, "partial\n", ""},
      {"kill -TERM $$\n", SIGTERM, "", ""},
      {"cat; echo after\n", 0, "after\n", ""},  // stdin is /dev/null, so cat ends at once
  };
  ProcessToolRunner runner;
  int n = 0;
  for (const auto& c : cases) {
    const auto tool = script(dir, "tool" + std::to_string(n++), c.body);
    EXPECT_EQ(runner.run({tool, "arg"}, 30.0), (ToolResult{c.returncode, c.out, c.err})) << c.body;
  }
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, MissingToolsAreNotFound) {
  TempDir dir;
  const auto exits127 = script(dir, "exits127", "exit 127\n");
  struct Case {
    std::vector<std::string> arguments;
    std::string name;
  };
  const Case cases[] = {
      {{exits127}, exits127},
      {{"vorlan-no-such-tool-here", "-x"}, "vorlan-no-such-tool-here"},
      {{}, ""},
  };
  ProcessToolRunner runner;
  for (const auto& c : cases) {
    const auto error = toolErrorOf([&] { runner.run(c.arguments, std::nullopt); });
    ASSERT_TRUE(error) << c.name;
    EXPECT_EQ(error->kind, ToolError::Kind::notFound);
    EXPECT_EQ(error->name, c.name);
  }
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, StreamsLinesAsTheyComplete) {
  TempDir dir;
  struct Case {
    std::string body;
    std::vector<std::string> lines;
    std::string out;
  };
  const Case cases[] = {
      {"printf 'ab'; sleep 0.1; printf 'c\\nd'\n", {"abc"}, "abc\nd"},
      {"printf 'a\\nb'\n", {"a"}, "a\nb"},
      {"printf 'ok\\n\\377bad\\nend\\n'\n", {"ok", "end"}, ""},
      {"printf 'x\\n' >&2; printf 'y\\n'\n", {"y"}, "y\n"},  // stderr never reaches onLine
  };
  ProcessToolRunner runner;
  int n = 0;
  for (const auto& c : cases) {
    std::vector<std::string> lines;
    const auto tool = script(dir, "tool" + std::to_string(n++), c.body);
    const auto result = runner.runStreaming({tool}, [&](const std::string& l) { lines.push_back(l); });
    EXPECT_EQ(lines, c.lines) << c.body;
    EXPECT_EQ(result.stdoutText, c.out) << c.body;
    EXPECT_EQ(result.returncode, 0);
  }
}

TEST(ProcessToolRunner, DrainsLargeOutputOnBothStreams) {
  TempDir dir;
  // stderr is filled first, far past a pipe's buffer, while nobody would wait on stdout.
  const auto tool = script(dir, "big",
                           "yes abcdefg | head -c 1048576 >&2\n"
                           "yes abcdefg | head -c 1048576\n");
  size_t lines = 0;
  const auto result =
      ProcessToolRunner().runStreaming({tool}, [&](const std::string& l) { lines += l == "abcdefg"; });
  EXPECT_EQ(result.returncode, 0);
  EXPECT_EQ(result.stdoutText.size(), 1048576u);
  EXPECT_EQ(result.stderrText.size(), 1048576u);
  EXPECT_EQ(lines, 1048576u / 8);
}

TEST(ProcessToolRunner, TimeLimitEndsTheChildAndFails) {
  TempDir dir;
  struct Case {
    std::string body;
  };
  const Case cases[] = {
      {"echo started; exec sleep 30\n"},
      // Ignores SIGTERM: only the forced kill after the grace period ends it.
      {"trap '' TERM; exec sleep 30\n"},
  };
  ProcessToolRunner runner(200ms);
  int n = 0;
  for (const auto& c : cases) {
    const std::vector<std::string> arguments{script(dir, "slow" + std::to_string(n++), c.body), "x"};
    const auto start = std::chrono::steady_clock::now();
    auto error = toolErrorOf([&] { runner.run(arguments, 0.3); });
    EXPECT_LT(std::chrono::steady_clock::now() - start, kHangBound) << c.body;
    ASSERT_TRUE(error) << c.body;
    EXPECT_EQ(error->kind, ToolError::Kind::timeout);
    EXPECT_EQ(error->arguments, arguments);
  }
  // A tool that finishes within its limit is not touched.
  EXPECT_EQ(runner.run({script(dir, "quick", "echo ok\n")}, 30.0).stdoutText, "ok\n");
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, CancellationTerminatesAndReturnsTheResult) {
  TempDir dir;
  const auto tool = script(dir, "endless", "echo first; exec sleep 30\n");
  ProcessToolRunner runner;
  std::stop_source source;
  std::promise<void> firstLine;
  std::jthread canceller([&, seen = firstLine.get_future()]() mutable {
    seen.wait_for(kHangBound);
    source.request_stop();
  });
  std::vector<std::string> lines;
  const auto start = std::chrono::steady_clock::now();
  const auto result = runner.runStreaming(
      {tool},
      [&](const std::string& l) {
        lines.push_back(l);
        if (lines.size() == 1) firstLine.set_value();
      },
      source.get_token());
  EXPECT_LT(std::chrono::steady_clock::now() - start, kHangBound);
  EXPECT_EQ(result.returncode, SIGTERM);
  EXPECT_EQ(lines, std::vector<std::string>{"first"});
  EXPECT_TRUE(noChildLeft());

  // A stop that came before the launch still ends the child at once.
  std::stop_source early;
  early.request_stop();
  EXPECT_EQ(runner.run({tool}, std::nullopt, early.get_token()).returncode, SIGTERM);
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, ChildStartsWithNoSignalBlockedOrIgnored) {
  TempDir dir;
  const auto tool = script(dir, "selfterm", "kill -TERM $$; sleep 5\n");
  // What the vorlan command does to its threads, and worse: SIGINT and SIGTERM blocked and ignored.
  sigset_t both;
  sigemptyset(&both);
  sigaddset(&both, SIGINT);
  sigaddset(&both, SIGTERM);
  sigset_t oldMask;
  pthread_sigmask(SIG_BLOCK, &both, &oldMask);
  const auto oldInt = ::signal(SIGINT, SIG_IGN);
  const auto oldTerm = ::signal(SIGTERM, SIG_IGN);
  ProcessToolRunner runner;
  const auto selfKill = runner.run({tool}, 30.0);
  // The shell clears its mask itself, so the mask is read by a tool that does not.
  std::optional<ToolResult> status;
  if (std::filesystem::exists("/proc/self/status"))
    status = runner.run({"grep", "-E", "^Sig(Blk|Ign):", "/proc/self/status"}, 30.0);
  ::signal(SIGTERM, oldTerm);
  ::signal(SIGINT, oldInt);
  pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);

  EXPECT_EQ(selfKill.returncode, SIGTERM);
  if (status) {
    // Signals 1 to 31 only: the C library keeps its own real-time ones ignored.
    unsigned long long blocked = 1, ignored = 1;
    ASSERT_EQ(std::sscanf(status->stdoutText.c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored), 2);
    EXPECT_EQ(blocked & 0x7fffffffu, 0u) << status->stdoutText;
    EXPECT_EQ(ignored & 0x7fffffffu, 0u) << status->stdoutText;
  }
}

TEST(ProcessToolRunner, LeftoverBackgroundProcessDoesNotHoldTheRun) {
  TempDir dir;
  const auto pidFile = (dir / "bg.pid").string();
  const auto tool = script(dir, "daemonish", "sleep 30 & echo $! > \"$1\"; echo done\n");
  const auto start = std::chrono::steady_clock::now();
  const auto result = ProcessToolRunner().run({tool, pidFile}, std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - start, kHangBound);
  EXPECT_EQ(result, (ToolResult{0, "done\n", ""}));
  if (const int pid = std::atoi(test::readFile(pidFile).c_str()); pid > 0) ::kill(pid, SIGKILL);
}

TEST(ProcessToolRunner, LineCallbackFailurePropagatesAfterTheChildIsGone) {
  TempDir dir;
  const auto tool = script(dir, "chatty", "echo one; exec sleep 30\n");
  EXPECT_THROW(ProcessToolRunner().runStreaming(
                   {tool}, [](const std::string&) { throw std::logic_error("caller bug"); }),
               std::logic_error);
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, ChildPathPutsPackageFoldersFirst) {
  struct Case {
    std::optional<std::string_view> own;
    std::string expected;
  };
  const Case cases[] = {
      {"/x", "/opt/homebrew/bin:/usr/local/bin:/x"},
      {"/a:/b", "/opt/homebrew/bin:/usr/local/bin:/a:/b"},
      {std::nullopt, "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"},
      {"", "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin"},
  };
  for (const auto& c : cases) EXPECT_EQ(toolSearchPath(c.own), c.expected);

  TempDir dir;
  const auto tool = script(dir, "path", "printf '%s' \"$PATH\"\n");
  const char* own = std::getenv("PATH");
  EXPECT_EQ(ProcessToolRunner().run({tool}, 30.0).stdoutText,
            toolSearchPath(own ? std::optional<std::string_view>(own) : std::nullopt));
}

TEST(ProcessToolRunner, HasBinaryWantsAnExecutableRegularFile) {
  TempDir dir;
  writeScript(dir / "bin/vorlan-test-tool", "exit 0\n");
  test::writeFile(dir / "bin/vorlan-test-plain", "data");
  std::filesystem::create_directories(dir / "bin/vorlan-test-dir");
  std::filesystem::create_symlink(dir / "bin/vorlan-test-tool", dir / "bin/vorlan-test-link");
  const std::string bin = (dir / "bin").string();
  struct Case {
    std::string name;
    std::string path;
    bool found;
  };
  const Case cases[] = {
      {"vorlan-test-tool", bin, true},
      {"vorlan-test-tool", "/nowhere::" + bin, true},
      {"vorlan-test-link", bin, true},
      {"vorlan-test-tool", "/nowhere", false},
      {"vorlan-test-plain", bin, false},
      {"vorlan-test-dir", bin, false},
      {"vorlan-test-missing", bin, false},
      {"sh", "", true},  // the system folders are searched whatever PATH says
      {"", bin, false},
  };
  for (const auto& c : cases)
    EXPECT_EQ(hasBinaryOnPath(c.name, c.path), c.found) << c.name << " on " << c.path;
}

TEST(ProcessToolRunner, LeaksNoDescriptorsAndServesManyThreads) {
  TempDir dir;
  const auto echo = script(dir, "echo", "printf '%s' \"$1\"\n");
  const auto slow = script(dir, "slow", "exec sleep 30\n");
  ProcessToolRunner runner(200ms);
  const size_t before = openDescriptors();

  std::vector<std::jthread> threads;
  std::atomic<int> wrong = 0;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 10; ++i) {
        const std::string word = std::to_string(t) + "-" + std::to_string(i);
        if (runner.run({echo, word}, 30.0).stdoutText != word) ++wrong;
      }
    });
  }
  threads.clear();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(toolErrorOf([&] { runner.run({"vorlan-no-such-tool-here"}, std::nullopt); }));
  EXPECT_TRUE(toolErrorOf([&] { runner.run({slow}, 0.05); }));

  EXPECT_EQ(openDescriptors(), before);
  EXPECT_TRUE(noChildLeft());
}

TEST(ProcessToolRunner, ChildInheritsNoDescriptorOfTheRun) {
  if (!std::filesystem::exists("/proc/self/fd")) GTEST_SKIP() << "needs /proc";
  // The child may hold 0, 1, 2 and whatever this test process was itself given to pass on.
  std::set<int> expected{0, 1, 2};
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = std::stoi(entry.path().filename().string());
    const int flags = ::fcntl(fd, F_GETFD);
    if (flags >= 0 && !(flags & FD_CLOEXEC)) expected.insert(fd);
  }
  const auto listing = ProcessToolRunner().run({"sh", "-c", "ls /proc/$$/fd"}, 30.0).stdoutText;
  std::set<int> seen;
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) seen.insert(std::stoi(line));
  EXPECT_EQ(seen, expected) << listing;
}

}  // namespace
}  // namespace vorlan
