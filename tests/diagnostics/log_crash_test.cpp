// A writer killed at a random moment, many times over: every line LogLine
// returned from must be in the file whole, and the only cut line is the one
// in flight at the kill, ended before the next writer's lines.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <new>
#include <random>
#include <string>
#include <thread>

#include "kestrel/diagnostics/log.hpp"
#include "kestrel/frame/unicode.hpp"
#include "temp_folder.hpp"

namespace kestrel::diagnostics {
namespace {

constexpr int kRounds = 40;
constexpr uint32_t kPerRound = 1000000;  // round r logs r * kPerRound + 0, 1, ...

std::string Line(uint32_t n) {
  char head[32];
  std::snprintf(head, sizeof head, "line %08u ", unsigned(n));
  std::string line(head);
  line.resize(100, 'x');
  return line;
}

TEST(LogFileIntegration, KilledWriterKeepsEveryCompletedLineWhole) {
  testing::TempFolder folder;
  const std::string path = folder.File("crash.log");
  const uint32_t seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> delay_ms(1, 50);
  // The child counts the lines LogLine has returned from in shared memory,
  // which outlives the child's death.
  void* shared = ::mmap(nullptr, sizeof(std::atomic<uint32_t>), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(shared, MAP_FAILED);
  auto* done = new (shared) std::atomic<uint32_t>(0);

  uint32_t reported[kRounds] = {};
  for (int round = 0; round < kRounds; ++round) {
    const uint32_t first = uint32_t(round) * kPerRound;
    done->store(0);
    const pid_t child = ::fork();
    if (child == 0) {
      try {
        LogFile log;
        log.OpenFile(FromUtf8(path), true);
        for (uint32_t n = 0; n < kPerRound; ++n) {
          log.LogLine(FromUtf8(Line(first + n)));
          done->store(n + 1);
        }
        ::pause();
      } catch (...) {
        ::_exit(2);
      }
      ::_exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms(random)));
    ::kill(child, SIGKILL);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "status " << status;
    reported[round] = done->load();
  }
  ::munmap(shared, sizeof(std::atomic<uint32_t>));

  // The file is each round's lines in order from its base, every one whole,
  // and at least as many as the round reported.
  const std::string bytes = testing::FileBytes(path);
  size_t pos = 0, total = 0;
  for (int round = 0; round < kRounds; ++round) {
    uint32_t count = 0;
    while (bytes.compare(pos, 102, Line(uint32_t(round) * kPerRound + count) + "\r\n") == 0) {
      pos += 102;  // the line and its CR LF
      ++count;
    }
    EXPECT_GE(count, reported[round]) << "round " << round << ": a returned line is missing";
    total += reported[round];
    // The line in flight at the kill may be cut short (the kernel stops a
    // write at a page boundary once SIGKILL is pending); the next writer
    // ends it before its own first line. A writer killed before its first
    // line (a slow start on a loaded machine) leaves nothing, so what
    // follows may be any later round's line: only a proper prefix of the
    // expected line, up to the next line end, is a cut.
    const std::string next = Line(uint32_t(round) * kPerRound + count) + "\r\n";
    const size_t line_end = std::min(bytes.find("\r\n", pos), bytes.size());
    const size_t cut = line_end - pos;
    if (cut > 0 && cut < next.size() && bytes.compare(pos, cut, next, 0, cut) == 0) {
      pos += cut;
      if (pos < bytes.size()) {
        EXPECT_EQ(bytes.compare(pos, 2, "\r\n"), 0) << "cut line not ended at " << pos;
        pos += 2;
      }
    }
  }
  EXPECT_EQ(pos, bytes.size()) << "torn or stray bytes at " << pos;
  EXPECT_GT(total, 0u) << "no writer ever completed a line";
}

}  // namespace
}  // namespace kestrel::diagnostics
