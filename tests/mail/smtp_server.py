"""SMTP server for the mail tests: aiosmtpd on 127.0.0.1 at a free port.

Usage: smtp_server.py OUTPUT_FOLDER, or smtp_server.py --sendmail OUTPUT_FOLDER -t -i
(a stand-in sendmail: one message from standard input, recipients from its headers).
Writes the port to OUTPUT_FOLDER/port once it listens, then each message to
OUTPUT_FOLDER/NNNN.msg as lines "mail_from ADDRESS", "rcpt_to ADDRESS" (each),
"header NAME VALUE" (decoded), "body HEX" (the text part, UTF-8) and
"attachment NAME|CONTENT-TYPE|HEX" (each). Recipients starting with "refused"
get 550; AUTH accepts ann/secret only, and is optional. Stops on SIGTERM.
"""
import asyncio
import email
import email.policy
import email.utils
import logging
import os
import signal
import sys

from aiosmtpd.smtp import SMTP, AuthResult

SENDMAIL = sys.argv[1] == "--sendmail"
OUTPUT = sys.argv[2] if SENDMAIL else sys.argv[1]
# aiosmtpd logs a warning about its own use of a deprecated session field.
logging.getLogger("mail.log").setLevel(logging.ERROR)


def write_atomically(name, text):
    temporary = os.path.join(OUTPUT, "." + name + ".tmp")
    with open(temporary, "w", encoding="utf-8") as f:
        f.write(text)
    os.rename(temporary, os.path.join(OUTPUT, name))


def one_line(value):
    return " ".join(str(value).split())


class Handler:
    def __init__(self):
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address.startswith("refused"):
            return "550 5.1.1 No such user"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        write_atomically("%04d.msg" % self.count,
                         summary(envelope.content, envelope.mail_from, envelope.rcpt_tos))
        return "250 Message accepted"


def summary(content, mail_from, rcpt_tos):
    message = email.message_from_bytes(content, policy=email.policy.default)
    lines = ["mail_from " + mail_from]
    lines += ["rcpt_to " + r for r in rcpt_tos]
    for name in ("From", "To", "Cc", "Bcc", "Subject", "Date", "Message-ID"):
        if message.get(name) is not None:
            lines.append("header %s %s" % (name, one_line(message.get(name))))
    body = message.get_body(("plain",))
    text = body.get_content() if body is not None else ""
    lines.append("body " + text.encode("utf-8").hex())
    for part in message.iter_attachments():
        data = part.get_payload(decode=True) or b""
        lines.append("attachment %s|%s|%s" % (part.get_filename(), part.get_content_type(),
                                              data.hex()))
    return "\n".join(lines) + "\n"


def sendmail():
    content = sys.stdin.buffer.read()
    message = email.message_from_bytes(content, policy=email.policy.default)
    mail_from = email.utils.parseaddr(message.get("From", ""))[1]
    rcpt_tos = [a for _, a in email.utils.getaddresses(
        [str(message.get(h)) for h in ("To", "Cc", "Bcc") if message.get(h) is not None])]
    write_atomically("0001.msg", summary(content, mail_from, rcpt_tos))


def authenticate(server, session, envelope, mechanism, auth_data):
    ok = getattr(auth_data, "login", None) == b"ann" and auth_data.password == b"secret"
    return AuthResult(success=ok, handled=False)


async def main():
    loop = asyncio.get_running_loop()
    handler = Handler()
    server = await loop.create_server(
        lambda: SMTP(handler, hostname="kestrel.test", authenticator=authenticate,
                     auth_required=False, auth_require_tls=False,
                     data_size_limit=64 * 1024 * 1024),
        "127.0.0.1", 0)
    write_atomically("port", "%d\n" % server.sockets[0].getsockname()[1])
    stop = asyncio.Event()
    loop.add_signal_handler(signal.SIGTERM, stop.set)
    await stop.wait()
    server.close()


if SENDMAIL:
    sendmail()
else:
    asyncio.run(main())
