// Running part of a test as a user that file permissions apply to. Root
// reads and writes whatever the permissions say, so a suite run as root
// (as CI does) cannot see a denial in its own process. RunAsUnprivileged
// runs the body directly when the process is not root; as root it runs it
// in a forked child that drops to user and group nobody (65534), and the
// child's exit status fails the test when an expectation failed there (the
// child prints its failures as usual). Folders the body works in must be
// reachable by that user: GiveToUnprivileged hands them over.
//
//   GiveToUnprivileged(folder.path());
//   RunAsUnprivileged([&] { EXPECT_FALSE(Write(read_only_file)); });
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <functional>
#include <string>

namespace kestrel::testing {

inline constexpr uid_t kUnprivilegedId = 65534;

// Whether RunAsUnprivileged runs its body in a child that drops to nobody.
inline bool RunningAsRoot() {
  return ::geteuid() == 0;
}

// Makes `path` belong to the user the body runs as (nothing to do when that
// is the current user).
inline void GiveToUnprivileged(const std::string& path) {
  if (RunningAsRoot() && ::chown(path.c_str(), kUnprivilegedId, kUnprivilegedId) != 0) {
    ADD_FAILURE() << "cannot hand " << path << " to the unprivileged user";
  }
}

inline void RunAsUnprivileged(const std::function<void()>& body) {
  if (!RunningAsRoot()) {
    body();
    return;
  }
  enum Status { kPassed = 0, kFailed = 1, kCannotDrop = 2 };
  std::fflush(nullptr);  // nothing buffered is printed twice
  const pid_t child = ::fork();
  if (child < 0) {
    ADD_FAILURE() << "fork failed";
    return;
  }
  if (child == 0) {
    // Groups first: setgid and setgroups need the privileges setuid drops.
    int status = kCannotDrop;
    if (::setgroups(0, nullptr) == 0 && ::setgid(kUnprivilegedId) == 0 &&
        ::setuid(kUnprivilegedId) == 0) {
      body();
      status = ::testing::Test::HasFailure() ? kFailed : kPassed;
    }
    std::fflush(nullptr);
    ::_exit(status);  // no destructors: the parent's folders stay
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status)) {
    ADD_FAILURE() << "the unprivileged child did not exit";
  } else if (WEXITSTATUS(status) == kCannotDrop) {
    ADD_FAILURE() << "the child could not drop to user " << kUnprivilegedId;
  } else if (WEXITSTATUS(status) != kPassed) {
    ADD_FAILURE() << "the unprivileged part failed (its failures are printed above)";
  }
}

}  // namespace kestrel::testing
