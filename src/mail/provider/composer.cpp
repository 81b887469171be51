#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string>
#include <vector>

#include "provider.hpp"

extern char** environ;

namespace kestrel::mapi {
namespace {

// Runs a program found on PATH with these arguments and waits for it;
// its exit status, or -1 when it could not be started.
int Run(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  if (::posix_spawnp(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) return -1;
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0)
    if (errno != EINTR) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

// The composer is the desktop's mailto handler, reached through xdg-email,
// which fills in subject, body, recipients and attachments. Whether the
// user then sends or discards the message is not reported back.
ULONG OpenComposer(const Outgoing& m) {
  std::vector<std::string> args{"xdg-email", "--utf8"};
  if (!m.subject.empty()) args.insert(args.end(), {"--subject", m.subject});
  if (!m.body.empty()) {
    // The records end lines with CR LF; xdg-email writes every LF as CR LF
    // itself.
    std::string body;
    for (size_t i = 0; i < m.body.size(); ++i)
      if (m.body[i] != '\r' || i + 1 == m.body.size() || m.body[i + 1] != '\n') body += m.body[i];
    args.insert(args.end(), {"--body", body});
  }
  for (const Address& a : m.cc) args.insert(args.end(), {"--cc", a.address});
  for (const Address& a : m.bcc) args.insert(args.end(), {"--bcc", a.address});
  for (const File& f : m.files) args.insert(args.end(), {"--attach", f.path});
  for (const Address& a : m.to) args.push_back(a.address);
  return Run(args) == 0 ? SUCCESS_SUCCESS : MAPI_E_FAILURE;
}

}  // namespace kestrel::mapi
