#!/usr/bin/python3
"""Scale: many files, one huge message, huge headers and part counts.

    /usr/bin/python3 bench/scale_bench.py [--build BUILD] [drain|big|shapes ...]

drain   10,000 small queue files dropped at once and delivered by one
        `telmoraq /NvDebug` to aiosmtpd on loopback. Samples the service's
        resident memory and open descriptors every second; prints them at
        the start of the drain, the highest seen, and at the end.
big     one message of about 100 MB (a 75 MB binary attachment in base64)
        delivered the same way; prints the service's peak resident memory
        (VmHWM) beside the goal of three times the message plus 10 MB.
shapes  the engine (telmoraq-mime --tree) on a header of 1,000,000 lines and
        on 100,000 parts, each at that size and at twice it: wall time and
        peak memory of both, and the ratio of the times (about 2 for linear).

All three by default. Nothing here asserts: the figures are for the reader.
"""

import argparse
import os
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
sys.path.insert(0, HERE)
from service_run import ServiceRun  # noqa: E402
from smtp_bench import Server  # noqa: E402

SMALL = ("From: Bench <bench@example.test>\r\nTo: Sink <sink@example.test>\r\n"
         "Subject: scale bench\r\n\r\n" + "x" * 70 + "\r\n")


def drain_until(service, count, limit_seconds, sample):
    start = time.monotonic()
    while True:
        left, lines, archived = service.progress()
        if not left and lines >= count and archived >= count:
            return time.monotonic() - start
        if time.monotonic() - start > limit_seconds:
            sys.exit("scale_bench: %d of %d files left after %d s" % (left, count, limit_seconds))
        sample()
        time.sleep(1)


def bench_drain(build, work, count=10000):
    maildir = os.path.join(work, "mail")
    os.makedirs(maildir)
    server = Server("plain", maildir)
    service = ServiceRun(build, os.path.join(work, "service"))
    try:
        message = os.path.join(work, "small.eml")
        with open(message, "w") as out:
            out.write(SMALL)
        service.submit("seed", server.port, message)
        # One file through first, so that the start figures are of a warm process.
        service.start()
        drain_until(service, 1, 120, lambda: None)
        before = service.status()
        for i in range(count):
            service.submit("m%05d" % i, server.port, message)
        samples = []
        seconds = drain_until(service, count + 1, 3600, lambda: samples.append(service.status()))
        after = service.status()
        got = len([n for n in os.listdir(maildir) if n.endswith(".eml")])
        print("drain: %d files in %.0f s (%.1f msg/s), %d delivered" % (count, seconds, count / seconds, got - 1))
        print("       resident memory kB: before %d, highest %d, after %d"
              % (before["VmRSS"], max(s["VmRSS"] for s in samples + [after]), after["VmRSS"]))
        print("       open descriptors:   before %d, highest %d, after %d"
              % (before["fds"], max(s["fds"] for s in samples + [after]), after["fds"]))
    finally:
        service.stop()
        server.stop()


# The boundary is long on purpose: delimiters are searched without their dashes,
# so a short one would match the ends of base64 lines.
def write_big_message(path, attachment_bytes=75 * 1000 * 1000):
    import base64
    chunk = os.urandom(57 * 1000)
    with open(path, "wb") as out:
        out.write(b"From: Bench <bench@example.test>\r\nTo: Sink <sink@example.test>\r\n"
                  b"Subject: big\r\nMIME-Version: 1.0\r\n"
                  b"Content-Type: multipart/mixed; boundary=\"=_scale_bench_0123456789\"\r\n\r\n"
                  b"--=_scale_bench_0123456789\r\n"
                  b"Content-Type: text/plain\r\n\r\nA large attachment.\r\n--=_scale_bench_0123456789\r\n"
                  b"Content-Type: application/octet-stream\r\nContent-Transfer-Encoding: base64\r\n"
                  b"Content-Disposition: attachment; filename=\"big.bin\"\r\n\r\n")
        for _ in range(attachment_bytes // len(chunk)):
            out.write(base64.encodebytes(chunk).replace(b"\n", b"\r\n"))
        out.write(b"--=_scale_bench_0123456789--\r\n")


def bench_big(build, work):
    message = os.path.join(work, "big.eml")
    write_big_message(message)
    size = os.path.getsize(message)
    maildir = os.path.join(work, "mail")
    os.makedirs(maildir)
    server = Server("plain", maildir, ["--data-size-limit", "0"])
    service = ServiceRun(build, os.path.join(work, "service"))
    try:
        service.submit("big", server.port, message)
        service.start()
        highest = {}
        seconds = drain_until(service, 1, 1800, lambda: highest.update(service.status()))
        peak = service.status()["VmHWM"]
        received = [n for n in os.listdir(maildir) if n.endswith(".eml")]
        got = os.path.getsize(os.path.join(maildir, received[0])) if received else 0
        goal = 3 * size // 1024 + 10 * 1024
        print("big:   message %.1f MB delivered in %.1f s (%.1f MB arrived); peak resident %.1f MB, "
              "goal %.1f MB (%s)" % (size / 1e6, seconds, got / 1e6, peak / 1024, goal / 1024,
                                     "within" if peak <= goal else "OVER"))
    finally:
        service.stop()
        server.stop()


def header_lines(path, lines):
    with open(path, "w") as out:
        out.write("From: a@example.test\r\nSubject: lines\r\n")
        for i in range(lines):
            out.write("X-Line-%d: value %d\r\n" % (i % 97, i))
        out.write("\r\nbody\r\n")


def many_parts(path, parts):
    with open(path, "w") as out:
        out.write("From: a@example.test\r\nMIME-Version: 1.0\r\n"
                  "Content-Type: multipart/mixed; boundary=\"p\"\r\n\r\n")
        for i in range(parts):
            out.write("--p\r\nContent-Type: text/plain\r\n\r\npart %d\r\n" % i)
        out.write("--p--\r\n")


def timed_tree(tool, path):
    """Wall seconds and peak resident kB of one `telmoraq-mime --tree`."""
    start = time.monotonic()
    child = subprocess.Popen([tool, "--tree", path], stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL)
    _, _, usage = os.wait4(child.pid, 0)
    child.returncode = 0
    return time.monotonic() - start, usage.ru_maxrss


def bench_shapes(build, work):
    tool = os.path.join(build, "tools", "mimetool", "telmoraq-mime")
    for name, make, size in (("header lines", header_lines, 1000000), ("parts", many_parts, 100000)):
        figures = []
        for n in (size, 2 * size):
            path = os.path.join(work, "%s-%d.eml" % (name.replace(" ", "-"), n))
            make(path, n)
            seconds, peak = timed_tree(tool, path)
            figures.append(seconds)
            print("shapes: %-12s %8d: %.2f MB in %.2f s, peak resident %.1f MB"
                  % (name, n, os.path.getsize(path) / 1e6, seconds, peak / 1024))
        print("        %s: twice the input took %.2f times the time" % (name, figures[1] / figures[0]))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build", default=os.path.join(ROOT, "build"))
    ap.add_argument("what", nargs="*", default=["drain", "big", "shapes"])
    args = ap.parse_args()
    build = os.path.abspath(args.build)
    for what in args.what:
        with tempfile.TemporaryDirectory(prefix="telmoraq-scale-") as work:
            {"drain": bench_drain, "big": bench_big, "shapes": bench_shapes}[what](build, work)


if __name__ == "__main__":
    main()
