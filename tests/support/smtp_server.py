#!/usr/bin/python3
"""A real SMTP server for tests: aiosmtpd on loopback, keeping what it receives.

    smtp_server.py --maildir DIR [--mode plain|starttls|tls] [--user NAME:PASSWORD ...]
                   [--auth-required] [--port N] [--cert PEM --key PEM]
                   [--data-size-limit BYTES]

Prints "PORT <n>" on stdout once it accepts connections, then serves until its
standard input closes or it gets SIGTERM. Each accepted message becomes
DIR/<seq>.eml (the DATA text exactly as received, dot-unstuffed, CR LF line
ends) and DIR/<seq>.env (envelope, one "key value" line each: mail_from,
rcpt_to per recipient, auth_login). Offers AUTH PLAIN, LOGIN and CRAM-MD5; CRAM-MD5 really checks the
digest. LOGIN prompts are "Username:" and "Password:", as most servers send them.
Without --cert a self-signed certificate is made in DIR.tls/.

Two switches for tests, by file and address rather than options: a recipient
whose local part starts with "refuse" gets 550, and while the file DIR.hold
exists, the answer to the end of DATA waits (the delivery is held open).
"""

import argparse
import asyncio
import base64
import hashlib
import hmac
import os
import secrets
import signal
import socket
import ssl
import subprocess
import sys
import threading
import time
import warnings

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword

# The stock prompts ("User Name", "Password" in base64) are not what servers in
# the field send; the client under test checks for the usual ones.
SMTP.AuthLoginUsernameChallenge = "Username:"
SMTP.AuthLoginPasswordChallenge = "Password:"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def make_certificate(folder):
    os.makedirs(folder, exist_ok=True)
    cert, key = os.path.join(folder, "cert.pem"), os.path.join(folder, "key.pem")
    if not os.path.exists(cert):
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2",
             "-subj", "/CN=localhost", "-keyout", key, "-out", cert],
            check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return cert, key


def login_of(auth_data):
    login = getattr(auth_data, "login", None)
    return login.decode("utf-8", "replace") if isinstance(login, bytes) else login


class Keeper:
    """Stores each message with its envelope; checks CRAM-MD5 itself."""

    def __init__(self, maildir, users):
        self.maildir = maildir
        self.users = users
        self.seq = 0
        self.lock = threading.Lock()

    async def handle_RCPT(self, server, session, envelope, address, rcpt_options):
        if address.lower().startswith("refuse"):
            return "550 5.1.1 mailbox unavailable"
        envelope.rcpt_tos.append(address)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        while os.path.exists(self.maildir.rstrip("/") + ".hold"):
            await asyncio.sleep(0.05)
        with self.lock:
            self.seq += 1
            stem = os.path.join(self.maildir, "%04d" % self.seq)
        lines = ["mail_from " + envelope.mail_from]
        lines += ["rcpt_to " + r for r in envelope.rcpt_tos]
        login = login_of(session.auth_data)
        if login is not None:
            lines.append("auth_login " + login)
        with open(stem + ".env", "w") as f:
            f.write("\n".join(lines) + "\n")
        with open(stem + ".eml.tmp", "wb") as f:
            f.write(envelope.original_content)
        os.rename(stem + ".eml.tmp", stem + ".eml")
        return "250 OK"

    async def auth_CRAM__MD5(self, server, args):
        challenge = ("<%d.%d@localhost>" % (secrets.randbits(32), int(time.time()))).encode()
        answer = await server.challenge_auth(challenge)
        if not isinstance(answer, bytes):
            return AuthResult(success=False, handled=True)
        login, _, digest = answer.partition(b" ")
        password = self.users.get(login.decode("utf-8", "replace"))
        if password is None:
            return AuthResult(success=False, handled=False)
        want = hmac.new(password.encode(), challenge, hashlib.md5).hexdigest().encode()
        if not hmac.compare_digest(want, digest):
            return AuthResult(success=False, handled=False)
        return AuthResult(success=True, auth_data=LoginPassword(login, b""))


def main():
    warnings.simplefilter("ignore", DeprecationWarning)
    ap = argparse.ArgumentParser()
    ap.add_argument("--maildir", required=True)
    ap.add_argument("--mode", choices=["plain", "starttls", "tls"], default="plain")
    ap.add_argument("--user", action="append", default=[])
    ap.add_argument("--auth-required", action="store_true")
    ap.add_argument("--port", type=int, default=0)
    ap.add_argument("--cert")
    ap.add_argument("--key")
    # aiosmtpd's own default (32 MiB) unless given; 0 takes any size.
    ap.add_argument("--data-size-limit", type=int)
    args = ap.parse_args()

    os.makedirs(args.maildir, exist_ok=True)
    users = dict(u.split(":", 1) for u in args.user)

    def authenticator(server, session, envelope, mechanism, auth_data):
        # A failure must not count as handled: aiosmtpd then sends the 535 itself.
        if not isinstance(auth_data, LoginPassword):
            return AuthResult(success=False, handled=False)
        ok = users.get(auth_data.login.decode("utf-8", "replace")) == \
            auth_data.password.decode("utf-8", "replace")
        if not ok:
            return AuthResult(success=False, handled=False)
        return AuthResult(success=True, auth_data=auth_data)

    cert, key = args.cert, args.key
    context = None
    if args.mode != "plain":
        if not cert:
            cert, key = make_certificate(os.path.abspath(args.maildir).rstrip("/") + ".tls")
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(cert, key)

    port = args.port or free_port()
    kwargs = dict(hostname="127.0.0.1", port=port, authenticator=authenticator,
                  auth_required=args.auth_required, auth_require_tls=False,
                  server_hostname="localhost", ready_timeout=10)
    if args.data_size_limit is not None:
        kwargs["data_size_limit"] = args.data_size_limit
    if args.mode == "starttls":
        kwargs["tls_context"] = context
    elif args.mode == "tls":
        kwargs["ssl_context"] = context
    controller = Controller(Keeper(args.maildir, users), **kwargs)
    controller.start()
    print("PORT %d" % port, flush=True)

    done = threading.Event()
    signal.signal(signal.SIGTERM, lambda *_: done.set())
    threading.Thread(target=lambda: (sys.stdin.read(), done.set()), daemon=True).start()
    done.wait()
    controller.stop()


if __name__ == "__main__":
    main()
