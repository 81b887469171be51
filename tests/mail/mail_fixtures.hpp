// Real components for the mail tests: an aiosmtpd server on loopback at a
// free port, the messages it received (parsed by Python's email package),
// and the provider's configuration file.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "kestrel/mail/message.hpp"
#include "temp_folder.hpp"

extern char** environ;

namespace kestrel::testing {

// One message as the server's handler wrote it down.
struct ReceivedMessage {
  std::string mail_from;
  std::vector<std::string> rcpt_to;
  std::map<std::string, std::string> headers;  // decoded, one line
  std::string body;                            // UTF-8
  struct File {
    std::string name, type, bytes;
    bool operator==(const File&) const = default;
  };
  std::vector<File> attachments;
};

inline std::string FromHex(const std::string& hex) {
  auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
  std::string out;
  out.reserve(hex.size() / 2);
  for (size_t i = 0; i + 1 < hex.size(); i += 2)
    out += static_cast<char>(digit(hex[i]) * 16 + digit(hex[i + 1]));
  return out;
}

inline std::vector<ReceivedMessage> ReadMessages(const TempFolder& folder_) {
  std::vector<ReceivedMessage> out;
  for (int n = 1;; ++n) {
    char name[16];
    std::snprintf(name, sizeof name, "%04d.msg", n);
    std::ifstream in(folder_.File(name));
    if (!in) return out;
    ReceivedMessage m;
    for (std::string line; std::getline(in, line);) {
      const size_t space = line.find(' ');
      const std::string key = line.substr(0, space);
      const std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
      if (key == "mail_from") {
        m.mail_from = rest;
      } else if (key == "rcpt_to") {
        m.rcpt_to.push_back(rest);
      } else if (key == "header") {
        const size_t gap = rest.find(' ');
        m.headers[rest.substr(0, gap)] = gap == std::string::npos ? "" : rest.substr(gap + 1);
      } else if (key == "body") {
        m.body = FromHex(rest);
      } else if (key == "attachment") {
        const size_t a = rest.find('|'), b = rest.find('|', a + 1);
        m.attachments.push_back(
            {rest.substr(0, a), rest.substr(a + 1, b - a - 1), FromHex(rest.substr(b + 1))});
      }
    }
    out.push_back(std::move(m));
  }
}

class SmtpServer {
 public:
  SmtpServer() {
    std::vector<std::string> args{"/usr/bin/python3", KESTREL_MAIL_TEST_DIR "/smtp_server.py",
                                  folder_.path()};
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (::posix_spawn(&pid_, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
      ADD_FAILURE() << "cannot start the SMTP server";
      return;
    }
    // Readiness, not timing: the server writes its port once it listens.
    const std::string port_file = folder_.File("port");
    for (int i = 0; i < 600 && !std::filesystem::exists(port_file); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    port_ = std::atoi(FileBytes(port_file).c_str());
    if (port_ == 0) ADD_FAILURE() << "the SMTP server did not start";
  }
  ~SmtpServer() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      int status = 0;
      ::waitpid(pid_, &status, 0);
    }
  }
  SmtpServer(const SmtpServer&) = delete;
  SmtpServer& operator=(const SmtpServer&) = delete;

  std::string Url() const { return "smtp://127.0.0.1:" + std::to_string(port_); }

  std::vector<ReceivedMessage> Messages() const { return ReadMessages(folder_); }

 private:
  TempFolder folder_;
  pid_t pid_ = 0;
  int port_ = 0;
};

// A loopback port nobody listens on.
inline int ClosedPort() {
  const int s = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t n = sizeof a;
  ::getsockname(s, reinterpret_cast<sockaddr*>(&a), &n);
  ::close(s);
  return ntohs(a.sin_port);
}

// Points the provider at a configuration file written for the test.
class MailConfig {
 public:
  explicit MailConfig(const std::string& ini) {
    ::setenv("KESTREL_MAIL_CONFIG", folder_.Write("mail.ini", ini).c_str(), 1);
  }
  ~MailConfig() { ::unsetenv("KESTREL_MAIL_CONFIG"); }

 private:
  TempFolder folder_;
};

inline std::string SmtpIni(const std::string& url, const std::string& extra = "") {
  return "[SMTP]\r\nUrl=" + url + "\r\nFrom=Kestrel Tests <tests@kestrel.test>\r\n" + extra;
}

inline Ref<Recipient> NewRecipient(RecipientClassEnum c, std::u16string_view name,
                                   std::u16string_view address) {
  auto r = MakeRef<Recipient>();
  r->SetClass(c);
  r->SetName(name);
  r->SetAddress(address);
  return r;
}

// Every byte value once, 0 to 255.
inline std::string AllBytes() {
  std::string s;
  for (int i = 0; i < 256; ++i) s += static_cast<char>(i);
  return s;
}

}  // namespace kestrel::testing
