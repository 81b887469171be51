// The Python test server (http_test_server.py) as a child process: started
// on first use on 127.0.0.1 at a free port, terminated when the test
// program ends. One plain HTTP and one HTTPS (self-signed) server. The
// benchmark and the tests share it.
#pragma once

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

extern char** environ;

namespace kestrel::testing {

class TestServer {
 public:
  explicit TestServer(bool tls) {
    // Loopback never goes through a proxy, whatever the environment says.
    ::setenv("no_proxy", "127.0.0.1,localhost", 1);
    ::setenv("NO_PROXY", "127.0.0.1,localhost", 1);
    // The server's stdin is a pipe only this process holds open: when the
    // process ends in any way, even killed by a sanitizer, the server sees
    // the end of its input and stops.
    int out[2], input[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(input, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    std::string python = "/usr/bin/python3";
    std::string script = KESTREL_WEB_TEST_SERVER;
    std::string watch = "--exit-with-stdin";
    std::string flag = "--tls";
    char* argv[] = {python.data(), script.data(), watch.data(), tls ? flag.data() : nullptr,
                    nullptr};
    if (posix_spawn(&pid_, python.c_str(), &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(input[0]);
    stdin_ = input[1];
    // The first line is the port.
    FILE* in = ::fdopen(out[0], "r");
    if (in != nullptr && std::fscanf(in, "%d", &port_) != 1) port_ = 0;
    if (in != nullptr) std::fclose(in);
  }
  ~TestServer() {
    if (stdin_ >= 0) ::close(stdin_);
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  int port() const { return port_; }
  std::u16string Url(const std::string& path) const {
    const std::string url =
        std::string(tls_scheme_) + "://127.0.0.1:" + std::to_string(port_) + path;
    return std::u16string(url.begin(), url.end());
  }

  static TestServer& Http() {
    static TestServer server(false);
    return server;
  }
  static TestServer& Https() {
    static TestServer server(true);
    server.tls_scheme_ = "https";
    return server;
  }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
  int stdin_ = -1;
  const char* tls_scheme_ = "http";
};

// A loopback port with nobody listening: bound, then released.
inline int ClosedPort() {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0)
    port = ntohs(address.sin_port);
  ::close(fd);
  return port;
}

}  // namespace kestrel::testing
