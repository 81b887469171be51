// A writer killed at a random moment, many times over: every line LogLine
// returned from must be in the file, and no line may be torn.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/frame/unicode.hpp"
#include "temp_folder.hpp"

namespace kestrel::diagnostics {
namespace {

constexpr int kRounds = 40;
constexpr uint32_t kPerRound = 1000000;  // round r logs r * kPerRound + 0, 1, ...
constexpr size_t kLineLength = 100;

std::string Line(uint32_t n) {
  char head[32];
  std::snprintf(head, sizeof head, "line %08u ", unsigned(n));
  std::string line(head);
  line.resize(kLineLength, 'x');
  return line;
}

// The child: log numbered lines forever, reporting each one after LogLine
// has returned. Only _exit leaves it (SIGKILL, normally).
[[noreturn]] void RunWriter(const std::string& path, uint32_t first, int report_fd) {
  try {
    LogFile log;
    log.OpenFile(FromUtf8(path), true);
    for (uint32_t n = first; n < first + kPerRound; ++n) {
      log.LogLine(FromUtf8(Line(n)));
      if (::write(report_fd, &n, sizeof n) != sizeof n) ::_exit(3);
    }
    ::pause();
  } catch (...) {
    ::_exit(2);
  }
  ::_exit(0);
}

// Reads whole numbers from the pipe into `out`; false at end of file.
bool Drain(int fd, std::string& pending, std::vector<uint32_t>& out) {
  char buffer[4096];
  ssize_t n = ::read(fd, buffer, sizeof buffer);
  if (n <= 0) return n < 0 && errno == EINTR;
  pending.append(buffer, size_t(n));
  size_t whole = pending.size() / sizeof(uint32_t) * sizeof(uint32_t);
  for (size_t i = 0; i < whole; i += sizeof(uint32_t)) {
    uint32_t v;
    std::memcpy(&v, pending.data() + i, sizeof v);
    out.push_back(v);
  }
  pending.erase(0, whole);
  return true;
}

// One round: start a writer, let it run for `delay`, kill it, and return
// the numbers it reported.
std::vector<uint32_t> KilledRound(const std::string& path, uint32_t first,
                                  std::chrono::milliseconds delay) {
  int fds[2];
  if (::pipe(fds) != 0) {
    ADD_FAILURE() << "pipe failed";
    return {};
  }
  pid_t child = ::fork();
  if (child == 0) {
    ::close(fds[0]);
    RunWriter(path, first, fds[1]);
  }
  ::close(fds[1]);
  std::vector<uint32_t> reported;
  std::string pending;
  // Keep the pipe drained while the child runs, so it never waits on us.
  auto deadline = std::chrono::steady_clock::now() + delay;
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd p{fds[0], POLLIN, 0};
    if (::poll(&p, 1, int(left.count())) > 0 && !Drain(fds[0], pending, reported)) break;
  }
  ::kill(child, SIGKILL);
  int status = 0;
  ::waitpid(child, &status, 0);
  while (Drain(fds[0], pending, reported)) {
  }
  ::close(fds[0]);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
      << "the writer ended on its own, status " << status;
  return reported;
}

TEST(LogFileIntegration, KilledWriterKeepsEveryCompletedLineAndTearsNone) {
  testing::TempFolder folder;
  std::string path = folder.File("crash.log");
  std::random_device seed_source;
  const uint32_t seed = seed_source();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> delay_ms(1, 50);

  // Highest reported number per round (or none).
  std::vector<int64_t> last_reported(kRounds, -1);
  size_t total_reported = 0;
  for (int round = 0; round < kRounds; ++round) {
    uint32_t first = uint32_t(round) * kPerRound;
    std::vector<uint32_t> reported =
        KilledRound(path, first, std::chrono::milliseconds(delay_ms(random)));
    for (size_t i = 0; i < reported.size(); ++i) {
      ASSERT_EQ(reported[i], first + i) << "round " << round;
    }
    if (!reported.empty()) last_reported[size_t(round)] = reported.back();
    total_reported += reported.size();
  }
  EXPECT_GT(total_reported, 0u) << "no writer ever completed a line";

  // The file is rounds of consecutive numbers, each round starting at its
  // base, every line whole; each round reaches at least what was reported.
  std::string bytes = testing::FileBytes(path);
  std::vector<int64_t> last_in_file(kRounds, -1);
  size_t pos = 0;
  int64_t previous = -1;
  while (pos < bytes.size()) {
    size_t end = bytes.find("\r\n", pos);
    ASSERT_NE(end, std::string::npos) << "unterminated last line at byte " << pos;
    std::string line = bytes.substr(pos, end - pos);
    pos = end + 2;
    unsigned n = 0;
    ASSERT_EQ(std::sscanf(line.c_str(), "line %8u ", &n), 1) << "torn line: " << line;
    ASSERT_EQ(line, Line(n)) << "torn line";
    size_t round = n / kPerRound;
    ASSERT_LT(round, size_t(kRounds));
    int64_t expected =
        last_in_file[round] < 0 ? int64_t(round) * kPerRound : last_in_file[round] + 1;
    ASSERT_EQ(int64_t(n), expected) << "line missing or out of order";
    ASSERT_GT(int64_t(n), previous) << "rounds out of order";
    previous = n;
    last_in_file[round] = n;
  }
  for (int round = 0; round < kRounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    EXPECT_GE(last_in_file[size_t(round)], last_reported[size_t(round)])
        << "a line LogLine returned from is not in the file";
  }
}

}  // namespace
}  // namespace kestrel::diagnostics
