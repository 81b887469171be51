#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "kestrel/files/profile.hpp"
#include "kestrel/frame/unicode.hpp"
#include "provider.hpp"

namespace kestrel::mapi {
namespace {

// A value of the [SMTP] section, "" when absent. The buffer grows until the
// value fits (a value cut short returns size - 1).
std::string Setting(const std::string& path, std::u16string_view key) {
  std::vector<char16_t> buffer(256);
  for (;;) {
    const int32_t n = files::GetProfileString(u"SMTP", key, u"", buffer, path);
    if (n < static_cast<int32_t>(buffer.size()) - 1) return ToUtf8({buffer.data(), size_t(n)});
    buffer.resize(buffer.size() * 2);
  }
}

// Any case: a StartTLS=YES or StartTLS=On read as false would send the
// password in clear text.
bool IsTrue(const std::string& text) {
  for (const char* word : {"1", "true", "yes", "on"})
    if (::strcasecmp(text.c_str(), word) == 0) return true;
  return false;
}

std::string HomeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  if (const passwd* pw = ::getpwuid(::getuid()); pw != nullptr && pw->pw_dir) return pw->pw_dir;
  return "";
}

}  // namespace

std::string SendmailPath() {
  if (const char* named = std::getenv("KESTREL_MAIL_SENDMAIL"); named != nullptr && *named != '\0')
    return named;
  return "/usr/sbin/sendmail";
}

std::string ConfigPath() {
  if (const char* named = std::getenv("KESTREL_MAIL_CONFIG"); named != nullptr && *named != '\0')
    return named;
  if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg != nullptr && *xdg == '/')
    return std::string(xdg) + "/kestrel/mail.ini";
  return HomeFolder() + "/.config/kestrel/mail.ini";
}

std::optional<Config> LoadConfig() {
  const std::string path = ConfigPath();
  Config c;
  c.url = Setting(path, u"Url");
  c.start_tls = IsTrue(Setting(path, u"StartTLS"));
  c.user = Setting(path, u"User");
  c.password = Setting(path, u"Password");
  c.from = Setting(path, u"From");
  if (c.url.empty() && ::access(SendmailPath().c_str(), X_OK) != 0) return std::nullopt;
  return c;
}

}  // namespace kestrel::mapi
