#!/usr/bin/python3
"""Messages per second: CNvSmtp beside Python's smtplib, against a local aiosmtpd.

    /usr/bin/python3 bench/smtp_bench.py [--bench BUILD/bench/bench_SmtpBench]

Starts tests/support/smtp_server.py on loopback, once in the clear and once
offering STARTTLS. In each mode it delivers 200 messages of about 10 KB, one
connection each (connect, EHLO, STARTTLS where offered, MAIL FROM, RCPT TO,
DATA, QUIT): first through the C++ client (the Google Benchmark program
bench_SmtpBench, 200 iterations, told the port by TELMORAQ_BENCH_SMTP_PORT),
then through smtplib with the same text against the same server. Prints
messages per second of both and their ratio. No authentication: the figures
are of the dialogue and the transport.
"""

import argparse
import json
import os
import smtplib
import ssl
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
SERVER = os.path.join(ROOT, "tests", "support", "smtp_server.py")
COUNT = 200


def ten_kilobyte_message():
    """The text bench_SmtpBench sends: 76-character lines, every tenth with a leading dot."""
    text = "From: <bench@example.test>\r\nTo: <sink@example.test>\r\nSubject: bench\r\n\r\n"
    line = 0
    while len(text) < 10 * 1000:
        text += ("." if line % 10 == 0 else "x") + chr(ord("a") + line % 26) * 75 + "\r\n"
        line += 1
    return text.encode()


class Server:
    def __init__(self, mode, maildir, extra=()):
        self.process = subprocess.Popen(
            ["/usr/bin/python3", SERVER, "--maildir", maildir, "--mode", mode] + list(extra),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        line = self.process.stdout.readline()
        if not line.startswith("PORT "):
            self.stop()
            sys.exit("smtp_bench: the aiosmtpd server did not start (is python3-aiosmtpd installed?)")
        self.port = int(line.split()[1])

    def stop(self):
        self.process.stdin.close()
        try:
            self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()


def run_ours(bench, port):
    env = dict(os.environ, TELMORAQ_BENCH_SMTP_PORT=str(port))
    out = subprocess.run([bench, "--benchmark_format=json"], env=env, check=True,
                         stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    result = json.loads(out)["benchmarks"][0]
    if result.get("error_occurred"):
        sys.exit("smtp_bench: " + result.get("error_message", "bench_SmtpBench failed"))
    return result["items_per_second"]


def run_smtplib(port, starttls, count, text):
    """Seconds for `count` messages through smtplib, one connection each."""
    context = ssl.create_default_context()
    context.check_hostname = False
    context.verify_mode = ssl.CERT_NONE
    start = time.perf_counter()
    for _ in range(count):
        with smtplib.SMTP("127.0.0.1", port) as client:
            client.ehlo("bench")
            if starttls:
                client.starttls(context=context)
                client.ehlo("bench")
            client.sendmail("bench@example.test", ["sink@example.test"], text)
    return time.perf_counter() - start


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--bench", default=os.path.join(ROOT, "build-smtp", "bench", "bench_SmtpBench"))
    args = ap.parse_args()
    if not os.access(args.bench, os.X_OK):
        sys.exit("smtp_bench: %s not found; build the target bench_SmtpBench first" % args.bench)
    text = ten_kilobyte_message()
    print("%d messages of %d bytes, one connection each, aiosmtpd on loopback" % (COUNT, len(text)))
    print("%-10s %16s %16s %8s" % ("mode", "CNvSmtp msg/s", "smtplib msg/s", "ratio"))
    for mode in ("plain", "starttls"):
        with tempfile.TemporaryDirectory() as scratch:
            server = Server(mode, os.path.join(scratch, "mail"))
            try:
                ours = run_ours(args.bench, server.port)
                theirs = COUNT / run_smtplib(server.port, mode == "starttls", COUNT, text)
            finally:
                server.stop()
        print("%-10s %16.1f %16.1f %8.2f" % (mode, ours, theirs, ours / theirs))


if __name__ == "__main__":
    main()
