"""Harness for the fault-injection suite: the real telmoraq process, a real
aiosmtpd peer, the fault proxy, and the ways to break things around them.

Each test gets a scratch folder of its own (registry file, pickup, sent,
failed, log, debug, trace, event log) and peers on ports of their own, so
tests run in parallel. The service runs in debug mode unless a test plays
the service manager. Waits are for files and process states with limits of
many seconds: a slow machine makes a test slower, never wrong.

Environment (set by tests/faults/CMakeLists.txt):
  TELMORAQ_BIN        the telmoraq program
  TELMORAQ_SUPPORT    tests/support (smtp_server.py, fault_proxy.py)
  TELMORAQ_FUZZ_DIR   fuzz/ of the checkout (kept crashers)
  TELMORAQ_SHARED_DIR the shared workspace with the real-world corpus
  TELMORAQ_SANITIZED  ON in the AddressSanitizer build
"""

import os
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest

PYTHON = "/usr/bin/python3"
BIN = os.environ.get("TELMORAQ_BIN", "")
SUPPORT = os.environ.get("TELMORAQ_SUPPORT", "")
SANITIZED = os.environ.get("TELMORAQ_SANITIZED", "OFF").upper() in ("ON", "1", "TRUE")
NOBODY = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"]


def wait_for(done, seconds, step=0.05):
    end = time.monotonic() + seconds
    while not done():
        if time.monotonic() > end:
            return False
        time.sleep(step)
    return True


def today_log_name(tz=None):
    """The day's result log name as the service computes it in zone `tz`."""
    saved = os.environ.get("TZ")
    try:
        if tz is not None:
            os.environ["TZ"] = tz
            time.tzset()
        return time.strftime("%Y-%m-%d.LOG", time.localtime())
    finally:
        if tz is not None:
            if saved is None:
                os.environ.pop("TZ", None)
            else:
                os.environ["TZ"] = saved
            time.tzset()


def closed_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def tool_works(command):
    try:
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=20).returncode == 0
    except (OSError, subprocess.TimeoutExpired):
        return False


def require_strace(test):
    if not tool_works(["strace", "-f", "-o", "/dev/null", "true"]):
        test.skipTest("strace missing or ptrace refused here")


def require_namespaces(test):
    if not tool_works(["unshare", "-Urm", "sh", "-c", "mount -t tmpfs none /mnt"]):
        test.skipTest("user and mount namespaces refused here (unshare -Urm)")


def require_nobody(test):
    if os.geteuid() != 0:
        test.skipTest("mode-bit rows need root to switch to uid 65534 (setpriv)")
    if not tool_works(NOBODY + ["true"]):
        test.skipTest("setpriv cannot switch to uid 65534 here")


class Ported:
    """A helper script that prints "PORT n" and runs until its stdin closes."""

    def __init__(self, test, args, what):
        self.proc = subprocess.Popen([PYTHON] + args, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL)
        test.addCleanup(self.stop)
        self.port = 0
        ready, _, _ = select.select([self.proc.stdout], [], [], 30)
        line = self.proc.stdout.readline().decode() if ready else ""
        if not line.startswith("PORT "):
            test.skipTest("%s did not start (python3-aiosmtpd missing?)" % what)
        self.port = int(line.split()[1])

    def stop(self):
        if self.proc.poll() is None:
            self.proc.stdin.close()
            self.proc.stdout.close()
            try:
                self.proc.wait(10)
            except subprocess.TimeoutExpired:
                self.proc.kill()
                self.proc.wait()


class Peer(Ported):
    """aiosmtpd keeping what it receives; recipients "refuse*" get 550; while
    <maildir>.hold exists, the end of DATA waits."""

    def __init__(self, test, maildir):
        self.maildir = maildir
        super().__init__(test, [os.path.join(SUPPORT, "smtp_server.py"), "--maildir", maildir],
                         "aiosmtpd test server")

    def messages(self):
        if not os.path.isdir(self.maildir):
            return []
        names = sorted(n for n in os.listdir(self.maildir) if n.endswith(".eml"))
        return [Service.read(os.path.join(self.maildir, n)) for n in names]

    def count(self):
        return len(self.messages())

    def subjects(self):
        found = []
        for data in self.messages():
            for line in data.split(b"\r\n"):
                if line.startswith(b"Subject: "):
                    found.append(line[9:].decode("utf-8", "replace"))
                    break
        return found

    def hold(self, on):
        path = self.maildir.rstrip("/") + ".hold"
        if on:
            open(path, "w").close()
        elif os.path.exists(path):
            os.unlink(path)


class Proxy(Ported):
    def __init__(self, test, target, fault, command=None):
        args = [os.path.join(SUPPORT, "fault_proxy.py"), "--target", str(target), "--fault", fault]
        if command:
            args += ["--command", command]
        super().__init__(test, args, "fault proxy")


def queue_text(port, subject, to="bob@example.test", body="Hello.\r\n", host="127.0.0.1"):
    """A queue file: control headers (no account, so no AUTH), then the message."""
    return ("X-NvQueueService-RemoveBeforeSending-Host: %s\r\n"
            "X-NvQueueService-RemoveBeforeSending-Port: %d\r\n"
            "X-NvQueueService-RemoveBeforeSending-Secure: FALSE\r\n"
            "From: Alice <alice@example.test>\r\nTo: Bob <%s>\r\nSubject: %s\r\n\r\n%s"
            % (host, port, to, subject, body)).encode()


def control_headers(port, host="127.0.0.1"):
    return ("X-NvQueueService-RemoveBeforeSending-Host: %s\r\n"
            "X-NvQueueService-RemoveBeforeSending-Port: %d\r\n" % (host, port)).encode()


class Service:
    """One scratch folder and the telmoraq process (or processes) working on it."""

    def __init__(self, test, keep_sent=1, keep_failed=1, logging=1, trace=None, shared=False):
        if not BIN or not os.access(BIN, os.X_OK):
            test.skipTest("telmoraq program not built: " + BIN)
        self.test = test
        self.dir = tempfile.mkdtemp(prefix="telmoraq-faults-")
        test.addCleanup(self.cleanup)
        for sub in ("pickup", "sent", "failed", "log", "debug", "mail"):
            os.mkdir(self.path(sub))
        if shared:  # for a service run as uid 65534
            for sub in ("", "pickup", "sent", "failed", "log", "debug"):
                os.chmod(self.path(sub), 0o777)
        self.procs = []
        self.settings = dict(keep_sent=keep_sent, keep_failed=keep_failed, logging=logging,
                             trace=self.path("trace.log") if trace is None else trace)
        self.write_registry()
        if shared:
            os.chmod(self.path("registry.reg"), 0o666)

    def path(self, name):
        return os.path.join(self.dir, name) if name else self.dir

    def write_registry(self):
        s = self.settings
        text = ("REGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\r\n"
                "\"PickupMailDir\"=\"%s\"\r\n\"SentMailDir\"=\"%s\"\r\n\"FailedMailDir\"=\"%s\"\r\n"
                "\"LogDir\"=\"%s\"\r\n\"EnableLogging\"=dword:%08x\r\n"
                "\"KeepSentMails\"=dword:%08x\r\n\"KeepFailedMails\"=dword:%08x\r\n\r\n"
                "[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\Trace]\r\n\"QueueServer\"=\"%s\"\r\n"
                % (self.path("pickup"), self.path("sent"), self.path("failed"), self.path("log"),
                   s["logging"], s["keep_sent"], s["keep_failed"], s["trace"]))
        with open(self.path("registry.reg"), "w") as f:
            f.write(text)

    def cleanup(self):
        for proc in self.procs:
            self.kill(proc)
        subprocess.run(["chmod", "-R", "u+rwx", self.dir], stderr=subprocess.DEVNULL)
        shutil.rmtree(self.dir, ignore_errors=True)

    # Queue files -------------------------------------------------------

    def drop(self, name, data, folder="pickup"):
        """Puts a queue file in place the way producers should: written, then renamed."""
        name = os.fsencode(name)
        temp = os.path.join(os.fsencode(self.path(folder)), b".drop-" + str(os.getpid()).encode())
        with open(temp, "wb") as f:
            f.write(data)
        os.rename(temp, os.path.join(os.fsencode(self.path(folder)), name))

    def submit(self, name, port, subject=None, folder="pickup", **kwargs):
        """A queue file for `port`; the subject is the name without ".nvq" unless given."""
        self.drop(name, queue_text(port, subject or name.rsplit(".", 1)[0], **kwargs), folder)

    def pickup(self):
        return sorted(n for n in os.listdir(os.fsencode(self.path("pickup")))
                      if not n.startswith(b"."))

    def listing(self, sub):
        return sorted(os.listdir(self.path(sub))) if os.path.isdir(self.path(sub)) else []

    def pickup_holds_only(self, kept):
        return self.pickup() == sorted(os.fsencode(k) for k in kept)

    # Process -----------------------------------------------------------

    def env(self, extra=None):
        env = dict(os.environ)
        env.update(TELMORAQ_REGISTRY=self.path("registry.reg"),
                   TELMORAQ_EVENTLOG=self.path("events.log"),
                   TELMORAQ_DEBUG_DIR=self.path("debug"))
        env.pop("NOTIFY_SOCKET", None)
        if extra:
            env.update(extra)
        return env

    def start(self, prefix=(), extra_env=None, service_mode=False, preexec=None):
        """Starts telmoraq, behind `prefix` (strace, unshare, setpriv) if given."""
        args = list(prefix) + [BIN] + ([] if service_mode else ["/NvDebug"])
        env = self.env(extra_env)
        if prefix:  # a traced or namespaced process is killed, never left to leak-check
            env["ASAN_OPTIONS"] = env.get("ASAN_OPTIONS", "") + ":detect_leaks=0"
        with open(self.path("stderr.%d" % len(self.procs)), "wb") as errors:
            proc = subprocess.Popen(args, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                    stderr=errors, preexec_fn=preexec, start_new_session=True)
        self.procs.append(proc)
        return proc

    def kill(self, proc, sig=signal.SIGKILL):
        """SIGKILL goes to the whole group: a traced service outlives its strace.
        Only while the leader is unreaped, so that its group id cannot be reused."""
        if proc.poll() is not None:
            return
        try:
            if sig == signal.SIGKILL:
                os.killpg(proc.pid, sig)
            else:
                os.kill(proc.pid, sig)
        except ProcessLookupError:
            pass
        if sig == signal.SIGKILL:
            proc.wait()

    def wait_first_pass(self, seconds=60):
        """The first pass writes "Mail pickup directory changed" to the trace."""
        return wait_for(lambda: b"Mail pickup directory changed" in self.trace(), seconds)

    def stderr(self, index=0):
        return self.read(self.path("stderr.%d" % index))

    # What the service left ---------------------------------------------

    @staticmethod
    def read(path):
        try:
            with open(path, "rb") as f:
                return f.read()
        except OSError:
            return b""

    def trace(self):
        return self.read(self.settings["trace"])

    def events(self):
        return self.read(self.path("events.log")).decode("utf-8", "replace")

    def log_lines(self):
        """Result lines of every day's log, head rows left out."""
        lines = []
        folder = self.path("log")
        for name in sorted(os.listdir(folder)) if os.path.isdir(folder) else []:
            if os.path.isfile(os.path.join(folder, name)):
                text = self.read(os.path.join(folder, name)).decode("utf-8", "replace")
                lines += [l for l in text.splitlines() if l and not l.startswith("Date and Time|")]
        return lines

    def result_line(self, subject):
        hits = [l for l in self.log_lines() if "|%s|" % subject in l]
        return hits[0] if len(hits) == 1 else None

    def processed_count(self, name):
        return self.trace().count(("Processing file %s/%s..." % (self.path("pickup"), name)).encode())


def cpu_seconds(pid):
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def open_descriptors(pid):
    return len(os.listdir("/proc/%d/fd" % pid))


class FaultTest(unittest.TestCase):
    """Common checks: nothing lost, nothing twice, the process alive."""

    def running_with_peer(self):
        """A started service past its first pass, with a peer that delivers into its mail folder."""
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        proc = service.start()
        self.assertTrue(service.wait_first_pass())
        return service, peer, proc

    def assertAlive(self, service, proc):
        self.assertIsNone(proc.poll(), "the service died: %r\n%s" % (proc.returncode, service.stderr()))

    def assertFateKept(self, service, name, subject, sub):
        """A loaded file left the queue with its copy in `sub` and its result line."""
        self.assertNotIn(os.fsencode(name), service.pickup())
        line = service.result_line(subject)
        self.assertIsNotNone(line, "one result line for %s in %r" % (subject, service.log_lines()))
        stored = line.split("|")[3]
        self.assertIn(stored, service.listing(sub), line)
        return line
