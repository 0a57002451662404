#!/usr/bin/python3
"""Whole-service throughput: 500 queue files dropped at once, beside msmtp and smtplib.

    /usr/bin/python3 bench/queue_bench.py [--build BUILD] [--count 500]

For each transport (in the clear, STARTTLS offered by the server) it starts
tests/support/smtp_server.py (aiosmtpd) on loopback and then:

- telmoraq: writes COUNT queue files of about 10 KB with telmoraq-submit into a
  fresh pickup folder, starts `telmoraq /NvDebug` and times until every file
  is delivered, archived (KeepSentMails) and has its result line;
- msmtp: sends the same message COUNT times, one process each;
- smtplib: sends it COUNT times, one connection each.

Prints messages per second for each, and the service's time per message
beside smtplib's. Installs msmtp with apt-get when it is missing (as root).
"""

import argparse
import glob
import os
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, HERE)
from service_run import ServiceRun  # noqa: E402
from smtp_bench import Server, run_smtplib  # noqa: E402  the same peer and smtplib sender


def ten_kilobyte_message():
    text = ("From: Bench <bench@example.test>\r\nTo: Sink <sink@example.test>\r\n"
            "Subject: queue bench\r\nContent-Type: text/plain; charset=us-ascii\r\n\r\n")
    line = 0
    while len(text) < 10 * 1000:
        text += ("." if line % 10 == 0 else "x") + chr(ord("a") + line % 26) * 75 + "\r\n"
        line += 1
    return text.encode()


def delivered(maildir):
    return len(glob.glob(os.path.join(maildir, "*.eml")))


def run_service(build, port, count, message_file, work):
    service = ServiceRun(build, work)
    for i in range(count):
        service.submit("m%04d" % i, port, message_file)
    service.start()
    start = time.monotonic()
    try:
        while True:
            left, lines, archived = service.progress()
            if not left and lines >= count and archived >= count:
                break
            if time.monotonic() - start > 900:
                sys.exit("queue_bench: the service did not finish within 15 minutes")
            time.sleep(0.02)
        return time.monotonic() - start
    finally:
        service.stop()


def ensure_msmtp():
    if shutil.which("msmtp"):
        return True
    subprocess.run(["apt-get", "install", "-y", "msmtp"], stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    return shutil.which("msmtp") is not None


def run_msmtp(port, starttls, count, text):
    tls = ["--tls=on", "--tls-starttls=on", "--tls-certcheck=off"] if starttls else ["--tls=off"]
    start = time.monotonic()
    for _ in range(count):
        subprocess.run(["msmtp", "--host=127.0.0.1", "--port=%d" % port, "--auth=off",
                        "--from=bench@example.test"] + tls + ["sink@example.test"],
                       input=text, check=True)
    return time.monotonic() - start


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default=os.path.join(ROOT, "build"))
    ap.add_argument("--count", type=int, default=500)
    args = ap.parse_args()
    build = os.path.abspath(args.build)
    have_msmtp = ensure_msmtp()
    text = ten_kilobyte_message()
    print("%d messages of %d bytes each" % (args.count, len(text)))
    for mode in ("plain", "starttls"):
        with tempfile.TemporaryDirectory(prefix="telmoraq-queue-bench-") as work:
            message_file = os.path.join(work, "message.eml")
            with open(message_file, "wb") as out:
                out.write(text)
            figures = {}
            for name in ("telmoraq", "msmtp", "smtplib"):
                if name == "msmtp" and not have_msmtp:
                    continue
                maildir = os.path.join(work, "mail-" + name)
                os.makedirs(maildir)
                server = Server(mode, maildir)
                try:
                    if name == "telmoraq":
                        seconds = run_service(build, server.port, args.count, message_file,
                                              os.path.join(work, "service"))
                    elif name == "msmtp":
                        seconds = run_msmtp(server.port, mode == "starttls", args.count, text)
                    else:
                        seconds = run_smtplib(server.port, mode == "starttls", args.count, text)
                    got = delivered(maildir)
                finally:
                    server.stop()
                if got != args.count:
                    sys.exit("queue_bench: %s delivered %d of %d" % (name, got, args.count))
                figures[name] = seconds
            print("%-9s" % mode + "  ".join(
                "%s %.1f msg/s" % (name, args.count / s) for name, s in figures.items()))
            ours = figures["telmoraq"] / args.count * 1000
            theirs = figures["smtplib"] / args.count * 1000
            print("          per message: telmoraq %.1f ms, smtplib %.1f ms (ratio %.2f)"
                  % (ours, theirs, ours / theirs))


if __name__ == "__main__":
    main()
