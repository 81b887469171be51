#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>
#include <string_view>

#include "provider.hpp"

extern char** environ;

namespace kestrel::mapi {
namespace {

// Base64 in lines of 76 digits, each ending in CR LF, as a MIME body has it.
std::string Base64Lines(std::string_view bytes) {
  constexpr size_t kLineLength = 76;
  const std::string digits = Base64(bytes);
  std::string out;
  out.reserve(digits.size() + digits.size() / kLineLength * 2 + 2);
  for (size_t at = 0; at < digits.size(); at += kLineLength) {
    out.append(digits, at, kLineLength);
    out += "\r\n";
  }
  return out;
}

// The local sendmail takes a finished message, so it is written here: the
// same headers as over SMTP, a multipart/mixed body with base64 parts.
std::string Serialise(const Outgoing& m, const Address& sender) {
  std::random_device random;
  const std::string boundary =
      "=_kestrel_" + std::to_string(random()) + "_" + std::to_string(random());
  // sendmail -t takes the Bcc recipients from the header and drops it.
  std::string out;
  for (const std::string& line : HeaderLines(m, sender, /*with_bcc=*/true)) out += line + "\r\n";
  out +=
      "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n\r\n";
  out += "--" + boundary + "\r\nContent-Type: text/plain; charset=UTF-8\r\n";
  out += "Content-Transfer-Encoding: base64\r\n\r\n" + Base64Lines(m.body);
  for (const File& f : m.files) {
    out += "--" + boundary + "\r\nContent-Type: " + f.content_type + "\r\n";
    out += DispositionHeader(f.name) + "\r\n";
    out += "Content-Transfer-Encoding: base64\r\n\r\n" + Base64Lines(f.content);
  }
  return out + "--" + boundary + "--\r\n";
}

}  // namespace

ULONG SendWithSendmail(const Config& config, const Outgoing& m) {
  const std::string text = Serialise(m, SenderOf(m, config));
  int pipe_fds[2];
  if (::pipe2(pipe_fds, O_CLOEXEC) != 0) return MAPI_E_FAILURE;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[0], STDIN_FILENO);
  std::string program = SendmailPath();
  char* argv[] = {program.data(), const_cast<char*>("-t"), const_cast<char*>("-i"), nullptr};
  pid_t pid = 0;
  const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipe_fds[0]);
  if (spawned != 0) {
    ::close(pipe_fds[1]);
    return MAPI_E_LOGON_FAILURE;
  }
  // A sendmail that stops reading must not kill the caller with SIGPIPE.
  sigset_t pipe_signal, old;
  sigemptyset(&pipe_signal);
  sigaddset(&pipe_signal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_signal, &old);
  bool written = true;
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = ::write(pipe_fds[1], text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      written = false;
      break;
    }
    done += static_cast<size_t>(n);
  }
  ::close(pipe_fds[1]);
  // A SIGPIPE raised by the writes above is pending now: take it.
  if (!written) {
    timespec zero{};
    sigtimedwait(&pipe_signal, nullptr, &zero);
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return MAPI_E_FAILURE;
  return written && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? SUCCESS_SUCCESS
                                                                  : MAPI_E_FAILURE;
}

}  // namespace kestrel::mapi
