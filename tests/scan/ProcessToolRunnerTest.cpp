#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>
#include <tuple>

#include "scan/ProcessToolRunner.hpp"
#include "support/TestSupport.hpp"

namespace vorlan {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
namespace fs = std::filesystem;

// Every script ends by itself within 30 s, so a runner that fails to end one fails the test
// (wrong status, missing error) instead of hanging it.
class ProcessToolRunnerTest : public ::testing::Test {
 protected:
  std::string script(const std::string& body) {
    const auto path = dir / ("tool" + std::to_string(++scripts));
    test::writeScript(path, body);
    return path.string();
  }
  test::TempDir dir;
  int scripts = 0;
  ProcessToolRunner runner{200ms};
};

// No child of ours is left, running or zombie.
bool noChildLeft() { return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD; }

std::optional<ToolError> errorOf(auto&& call) {
  try { call(); } catch (const ToolError& e) { return e; }
  return std::nullopt;
}

size_t openDescriptors() {
  const char* folder = fs::exists("/proc/self/fd") ? "/proc/self/fd" : "/dev/fd";
  return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

TEST_F(ProcessToolRunnerTest, StatusSignalsStreamsAndLinesAcrossReads) {
  const struct { std::string body; int32_t returncode; std::string out, err; Lines lines; } cases[] = {
      {"printf 'hi %s\\n' \"$1\"; printf 'warn\\n' >&2\n", 0, "hi arg\n", "warn\n", {"hi arg"}},
      {"echo partial; exit 3\n", 3, "partial\n", "", {"partial"}},
      {"kill -TERM $$\n", SIGTERM, "", "", {}},
      {"printf 'ab'; sleep 0.1; printf 'c\\nd'\n", 0, "abc\nd", "", {"abc"}},
      {"printf 'ok\\n\\377bad\\nend\\n'\n", 0, "", "", {"ok", "end"}},  // invalid UTF-8 is skipped
      {"cat; echo after\n", 0, "after\n", "", {"after"}},  // stdin is /dev/null: cat ends at once
  };
  for (const auto& c : cases) {
    Lines lines;
    const auto result = runner.runStreaming({script(c.body), "arg"}, [&](const std::string& l) { lines.push_back(l); });
    EXPECT_EQ(result, (ToolResult{c.returncode, c.out, c.err})) << c.body;
    EXPECT_EQ(lines, c.lines) << c.body;
  }
  EXPECT_TRUE(noChildLeft());
}

TEST_F(ProcessToolRunnerTest, DrainsLargeOutputOnBothStreams) {
  // stderr is filled first, far past a pipe's buffer, while nobody would wait on stdout.
  const auto tool = script("yes abcdefg | head -c 1048576 >&2\nyes abcdefg | head -c 1048576\n");
  size_t lines = 0;
  const auto result = runner.runStreaming({tool}, [&](const std::string& l) { lines += l == "abcdefg"; });
  EXPECT_EQ(std::tuple(result.returncode, result.stdoutText.size(), result.stderrText.size(), lines),
            std::tuple(0, 1048576u, 1048576u, 1048576u / 8));
}

// A missing tool and a time limit are errors; a tool that ignores SIGTERM still ends.
TEST_F(ProcessToolRunnerTest, NotFoundAndTimeLimitAreErrors) {
  const struct { std::vector<std::string> arguments; std::optional<double> limit; ToolError::Kind kind; } cases[] = {
      {{"vorlan-no-such-tool-here", "-x"}, 30.0, ToolError::Kind::notFound},
      {{}, {}, ToolError::Kind::notFound},
      {{script("echo started; exec sleep 30\n"), "x"}, 0.3, ToolError::Kind::timeout},
      {{script("trap '' TERM; sleep 30; touch \"${0%/*}/stubborn.done\"\n")}, 0.3, ToolError::Kind::timeout},
  };
  for (const auto& c : cases) {
    const auto error = errorOf([&] { runner.run(c.arguments, c.limit); });
    ASSERT_TRUE(error && error->kind == c.kind) << ::testing::PrintToString(c.arguments);
    const std::string name = c.arguments.empty() ? "" : c.arguments[0];
    if (c.kind == ToolError::Kind::notFound)
      EXPECT_EQ(std::pair(error->name, std::string(error->what())), std::pair(name, "tool not found: " + name));
    else
      EXPECT_EQ(error->arguments, c.arguments);
  }
  EXPECT_FALSE(fs::exists(dir / "stubborn.done")) << "the tool ignoring SIGTERM was not killed";
  EXPECT_TRUE(noChildLeft());
}

TEST_F(ProcessToolRunnerTest, CancellationTerminatesAndReturns) {
  const auto tool = script("echo first; exec sleep 30\n");
  // The stop comes from the thread that reads the child's output, while the child sleeps on.
  std::stop_source source;
  Lines lines;
  const auto result = runner.runStreaming(
      {tool}, [&](const std::string& l) { lines.push_back(l); source.request_stop(); }, source.get_token());
  EXPECT_EQ(result.returncode, SIGTERM);
  EXPECT_EQ(lines, Lines{"first"});
  // A stop that came before the launch still ends the child at once.
  EXPECT_EQ(runner.run({tool}, std::nullopt, source.get_token()).returncode, SIGTERM);
  // A failing line callback ends the child too, and its error reaches the caller.
  EXPECT_THROW(runner.runStreaming({tool}, [](const std::string&) { throw std::logic_error("bug"); }),
               std::logic_error);
  EXPECT_TRUE(noChildLeft());
}

TEST_F(ProcessToolRunnerTest, ChildStartsWithNoSignalBlockedOrIgnored) {
  // The vorlan command blocks SIGINT and SIGTERM; a child inheriting that could not be stopped.
  sigset_t both, oldMask;
  sigemptyset(&both);
  for (int s : {SIGINT, SIGTERM}) sigaddset(&both, s);
  pthread_sigmask(SIG_BLOCK, &both, &oldMask);
  const auto oldInt = ::signal(SIGINT, SIG_IGN), oldTerm = ::signal(SIGTERM, SIG_IGN);
  const auto selfKill = runner.run({script("kill -TERM $$; sleep 5\n")}, 30.0);
  // The shell resets its own mask, so a tool that does not reads it.
  const auto status = runner.run({"grep", "-E", "^Sig(Blk|Ign):", "/proc/self/status"}, 30.0);
  ::signal(SIGTERM, oldTerm);
  ::signal(SIGINT, oldInt);
  pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);

  EXPECT_EQ(selfKill.returncode, SIGTERM);
  // Signals 1 to 31 only: the C library keeps its own real-time ones ignored.
  unsigned long long blocked = 0, ignored = 0;
  const int fields = std::sscanf(status.stdoutText.c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored);
  EXPECT_TRUE(fields == 2 || !fs::exists("/proc/self/status"));
  EXPECT_EQ((blocked | ignored) & 0x7fffffffu, 0u) << status.stdoutText;
}

TEST_F(ProcessToolRunnerTest, LeftoverBackgroundProcessDoesNotHoldTheRun) {
  const auto pidFile = (dir / "bg.pid").string();
  const auto result = runner.run({script("sleep 30 & echo $! > \"$1\"; echo done\n"), pidFile}, std::nullopt);
  EXPECT_EQ(result, (ToolResult{0, "done\n", ""}));
  // Had the run waited for the pipe to close, the background sleep would be over by now.
  EXPECT_EQ(::kill(std::stoi(test::readFile(pidFile)), SIGKILL), 0);
}

TEST_F(ProcessToolRunnerTest, HasBinaryWantsAnExecutableRegularFile) {
  test::writeScript(dir / "bin/vorlan-test-tool", "exit 0\n");
  test::writeFile(dir / "bin/vorlan-test-plain", "data");
  const std::string bin = (dir / "bin").string();
  // A wrong "not installed" turns the tool's data safe to delete. The system folders are searched
  // whatever PATH says; a plain file is no tool.
  EXPECT_EQ(std::tuple(hasBinaryOnPath("vorlan-test-tool", "/nowhere::" + bin), hasBinaryOnPath("sh", ""),
                       hasBinaryOnPath("vorlan-test-tool", "/nowhere"), hasBinaryOnPath("vorlan-test-plain", bin)),
            std::tuple(true, true, false, false));
}

// Tools are looked up where the system and Homebrew put them, before the user's own PATH; an
// empty or missing PATH must not leave an empty piece, which env would take for the current folder.
TEST_F(ProcessToolRunnerTest, ChildToolsGetTheToolSearchPath) {
  const std::string system = "/opt/homebrew/bin:/usr/local/bin:/usr/bin:/bin:/usr/sbin:/sbin";
  EXPECT_EQ(std::tuple(toolSearchPath(std::nullopt), toolSearchPath(""), toolSearchPath("/x:/y")),
            std::tuple(system, system, "/opt/homebrew/bin:/usr/local/bin:/x:/y"));
  const char* own = std::getenv("PATH");
  EXPECT_EQ(runner.run({"sh", "-c", "printf %s \"$PATH\""}, 30.0).stdoutText,
            toolSearchPath(own ? std::optional<std::string_view>(own) : std::nullopt));
}

TEST_F(ProcessToolRunnerTest, LeaksNoDescriptors) {
  const size_t before = openDescriptors();
  EXPECT_EQ(runner.run({script("printf ok\n")}, 30.0).stdoutText, "ok");
  EXPECT_THROW(runner.run({"vorlan-no-such-tool-here"}, std::nullopt), ToolError);
  EXPECT_THROW(runner.run({script("exec sleep 30\n")}, 0.05), ToolError);
  EXPECT_EQ(openDescriptors(), before);

  if (!fs::exists("/proc/self/fd")) return;
  // The child holds 0, 1, 2 and whatever this process was itself given to pass on.
  std::set<int> expected{0, 1, 2}, seen;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
    if (const int fd = std::stoi(entry.path().filename().string()), flags = ::fcntl(fd, F_GETFD);
        flags >= 0 && !(flags & FD_CLOEXEC))
      expected.insert(fd);
  std::istringstream listing(runner.run({"sh", "-c", "ls /proc/$$/fd"}, 30.0).stdoutText);
  for (std::string line; std::getline(listing, line);) seen.insert(std::stoi(line));
  EXPECT_EQ(seen, expected);
}

}  // namespace
}  // namespace vorlan
