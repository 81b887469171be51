#!/usr/bin/python3
"""A small HTTP test server for the web tests, the benchmark and the demo.

Listens on 127.0.0.1 at a free port, prints the port on the first line of
its standard output, and serves until it is terminated (or, with
--exit-with-stdin, until its standard input closes, so that a parent that
dies without cleaning up leaves no server behind). With --tls it speaks
HTTPS with a freshly made self-signed certificate.

Endpoints (any method unless said):
  /echo               200: method and path, each request header, an empty
                      line, then the body's bytes (charset iso-8859-1)
  /status/<code>      <code> with its standard reason phrase, or ?reason=...
  /charset/<name>     a known text in windows-1252, utf-8, iso-8859-2,
                      utf-16 (with a byte-order mark), bom (UTF-16 BE with a
                      mark, no charset) or none (UTF-8, no charset)
  /redirect/<code>    <code> with Location: ?to=... (default /echo)
  /loop               a redirect to itself, for ever
  /slow?seconds=N     answers after N seconds
  /multipart          parses the posted multipart/form-data body with the
                      standard library's MIME parser and answers (UTF-8) one line
                      per part: field <name>=<value> or
                      file <name> filename=<f> type=<t> size=<n> sha256=<hex>
  /discard            reads the body and answers "ok"
"""

import argparse
import hashlib
import os
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import urllib.parse
from email import policy
from email.parser import Parser
from http import HTTPStatus
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer

CHARSET_BODIES = {
    "windows-1252": ("text/plain; charset=windows-1252",
                     b"caf\xe9 \x80 \x93q\x94 \x81\x8d\x8f\x90\x9d"),
    "utf-8": ("text/plain; charset=utf-8",
              "Gr\u00fc\u00dfe \u20ac \U0001F600".encode("utf-8") + b" \xff!"),
    "iso-8859-2": ('text/plain; charset="ISO-8859-2"',
                   "\u0141\u00f3d\u017a \u0151\u0171".encode("iso-8859-2")),
    "utf-16": ("text/plain; charset=utf-16",
               b"\xff\xfe" + "Gr\u00fc\u00dfe \u20ac".encode("utf-16-le")),
    "bom": ("text/plain", b"\xfe\xff" + "Gr\u00fc\u00dfe \u20ac".encode("utf-16-be")),
    "none": ("text/plain", "Gr\u00fc\u00dfe \u20ac".encode("utf-8")),
}


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def setup(self):
        super().setup()
        # Headers and body leave in two writes; without this the second waits
        # for the client's delayed acknowledgement of the first.
        self.connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def log_message(self, format, *args):  # quiet: the tests read stdout
        pass

    def answer(self, code, body, content_type="text/plain; charset=utf-8",
               reason=None, headers=()):
        self.send_response(code, reason)
        self.send_header("Content-Type", content_type)
        self.send_header("Content-Length", str(len(body)))
        for name, value in headers:
            self.send_header(name, value)
        self.end_headers()
        if self.command != "HEAD":
            self.wfile.write(body)

    def read_body(self):
        length = int(self.headers.get("Content-Length") or 0)
        return self.rfile.read(length) if length else b""

    def handle_any(self):
        url = urllib.parse.urlsplit(self.path)
        query = urllib.parse.parse_qs(url.query)
        parts = url.path.strip("/").split("/")
        body = self.read_body()
        head = parts[0] if parts else ""

        if head == "echo":
            text = "%s %s\n" % (self.command, self.path)
            for name, value in self.headers.items():
                text += "%s: %s\n" % (name, value)
            self.answer(200, text.encode("latin-1") + b"\n" + body,
                        "text/plain; charset=iso-8859-1")
        elif head == "status" and len(parts) == 2:
            code = int(parts[1])
            reason = query.get("reason", [None])[0]
            phrase = reason or HTTPStatus(code).phrase
            self.answer(code, ("page %d %s" % (code, phrase)).encode(), reason=reason)
        elif head == "charset" and len(parts) == 2:
            content_type, data = CHARSET_BODIES[parts[1]]
            self.answer(200, data, content_type)
        elif head == "redirect" and len(parts) == 2:
            to = query.get("to", ["/echo"])[0]
            self.answer(int(parts[1]), b"", headers=[("Location", to)])
        elif head == "loop":
            self.answer(302, b"", headers=[("Location", "/loop")])
        elif head == "slow":
            time.sleep(float(query.get("seconds", ["5"])[0]))
            self.answer(200, b"late")
        elif head == "multipart":
            self.answer(200, describe_multipart(self.headers.get("Content-Type", ""), body))
        elif head == "discard":
            self.answer(200, b"ok")
        else:
            self.answer(404, b"no such page")

    do_GET = do_POST = do_PUT = do_DELETE = do_HEAD = handle_any


def describe_multipart(content_type, body):
    # Read as Latin-1, one character per byte, so that names and contents
    # come back exactly as the bytes that were sent.
    message = Parser(policy=policy.compat32).parsestr(
        "Content-Type: " + content_type + "\r\n\r\n" + body.decode("latin-1"))
    lines = []
    for part in message.get_payload():
        name = part.get_param("name", header="content-disposition")
        data = part.get_payload().encode("latin-1")
        filename = part.get_filename()
        if filename is None:
            lines.append("field %s=%s" % (name, data.decode("latin-1")))
        else:
            lines.append("file %s filename=%s type=%s size=%d sha256=%s" % (
                name, filename, part.get_content_type(), len(data),
                hashlib.sha256(data).hexdigest()))
    return ("\n".join(lines) + "\n").encode("utf-8")


def self_signed_context(folder):
    key = os.path.join(folder, "key.pem")
    cert = os.path.join(folder, "cert.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-keyout", key, "-out", cert,
                    "-days", "1", "-subj", "/CN=127.0.0.1"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(cert, key)
    return context


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--tls", action="store_true")
    parser.add_argument("--exit-with-stdin", action="store_true",
                        help="stop when standard input closes (the parent died)")
    args = parser.parse_args()
    if args.exit_with_stdin:
        def watch():
            sys.stdin.buffer.read()
            os._exit(0)
        threading.Thread(target=watch, daemon=True).start()

    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    if args.tls:
        with tempfile.TemporaryDirectory() as folder:
            context = self_signed_context(folder)
        server.socket = context.wrap_socket(server.socket, server_side=True)
    print(server.server_address[1], flush=True)
    try:
        server.serve_forever()
    except KeyboardInterrupt:
        pass


if __name__ == "__main__":
    sys.exit(main())
