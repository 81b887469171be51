// Internals of the kestrel_mapi provider: the configuration, the message
// read from the Simple MAPI records, and the three ways it leaves (SMTP,
// the local sendmail, the user's mail composer).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kestrel/mail/simple_mapi.h"

namespace kestrel::mapi {

struct Config {
  std::string url;  // smtp://host:port or smtps://...; empty: the local sendmail
  bool start_tls = false;
  std::string user;
  std::string password;
  std::string from;  // address used when the message names no originator
};

// The file the configuration is read from ($KESTREL_MAIL_CONFIG, else
// $XDG_CONFIG_HOME/kestrel/mail.ini, else ~/.config/kestrel/mail.ini).
std::string ConfigPath();
// The configuration, or nullopt when there is no way to send: no server
// configured and no local sendmail.
std::optional<Config> LoadConfig();

// The local mail submission program used without a configured server:
// /usr/sbin/sendmail, or the program KESTREL_MAIL_SENDMAIL names.
std::string SendmailPath();

struct Address {
  std::string name;     // UTF-8 display name, may be empty
  std::string address;  // bare address, without "SMTP:"
};

struct File {
  std::string path;          // as given (UTF-8)
  std::string name;          // name the recipient sees
  std::string content_type;  // from the name's extension
  std::string content;       // the bytes; not read for the composer
};

// One message, as UTF-8 text, ready to be sent or shown.
struct Outgoing {
  std::optional<Address> originator;
  std::vector<Address> to, cc, bcc;
  std::string subject;
  std::string body;
  std::vector<File> files;
};

// Reads and checks the records: 15 for a recipient class other than To, Cc
// and Bcc, 14 for a recipient without a usable address, 11 for a missing
// attachment, 12 for one that cannot be read (content is read only when
// read_content is set). SUCCESS_SUCCESS when `out` is complete.
ULONG ReadMessage(const MapiMessage& message, bool read_content, Outgoing& out);

// A bare address from "SMTP:user@host" or "user@host", or nullopt when the
// text is not an address (a line break in it, for one).
std::optional<std::string> ParseAddress(const char* text);

// Header pieces of the Internet message.
std::string Base64(std::string_view bytes);             // one line, padded
std::string EncodeHeaderText(const std::string& utf8);  // RFC 2047 when needed
std::string FormatMailbox(const Address& a);
// The header lines both ways out write, without line ends: From, To, Cc,
// Bcc (only with `with_bcc`: a sendmail reading recipients from the header
// drops the line itself), Subject, Date and Message-ID.
std::vector<std::string> HeaderLines(const Outgoing& m, const Address& sender, bool with_bcc);
std::string ContentTypeFor(const std::string& file_name);
// Whether a file name can stand in quotes as it is (printable ASCII).
bool IsPlainFileName(const std::string& name);
// "Content-Disposition: attachment; filename..." for an attachment.
std::string DispositionHeader(const std::string& file_name);
// The sender's address: the originator's, else the configured one, else
// the login name at this host.
Address SenderOf(const Outgoing& m, const Config& config);

ULONG SendSmtp(const Config& config, const Outgoing& m);
ULONG SendWithSendmail(const Config& config, const Outgoing& m);
ULONG OpenComposer(const Outgoing& m);

}  // namespace kestrel::mapi
