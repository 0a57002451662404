"""The process dies at each point of a delivery; a restart must deliver what was
not yet deleted. The server may get a file twice only when the kill came after
it accepted the text and before the delete; never zero times."""

import os
import re
import signal
import socket
import subprocess
import time

from harness import FaultTest, Peer, Service, queue_text, require_strace, wait_for

NAME, SUBJECT = "k.nvq", "killed once"


class KillPoints(FaultTest):
    def setUp(self):
        require_strace(self)

    def strace(self, service, *injection):
        return ["strace", "-f", "-qq", "-o", service.path("strace.log")] + list(injection)

    def run_until_killed(self, prefix, body="Hello.\r\n", settled=False):
        """Delivers one file under `prefix` until the injected kill; returns the
        service, the peer and the file as dropped. `settled`: the settings are
        written back by an earlier start first, so that the start under `prefix`
        flushes nothing of its own on the main thread (strace counts "when="
        per thread)."""
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        if settled:
            first = service.start()
            self.assertTrue(wait_for(lambda: b"Mail pickup directory changed" in service.trace(), 30))
            service.kill(first)
        service.drop(NAME, queue_text(peer.port, SUBJECT, body=body))
        original = service.read(service.path("pickup/" + NAME))
        proc = service.start(prefix=prefix(service))
        try:
            proc.wait(90)
        except subprocess.TimeoutExpired:
            self.fail("the injected kill never came:\n" + service.trace().decode("utf-8", "replace"))
        self.assertIn("+++ killed by SIGKILL", service.read(service.path("strace.log")).decode())
        return service, peer, original

    def restart_and_settle(self, service, peer, expected_total):
        """Restarts the service; the queue empties and the server ends with `expected_total`."""
        proc = service.start()
        self.assertTrue(wait_for(lambda: service.pickup() == [], 60), service.pickup())
        self.assertTrue(wait_for(lambda: peer.count() >= expected_total, 10))
        self.assertTrue(wait_for(lambda: len(service.log_lines()) >= expected_total - 1, 10))
        self.assertAlive(service, proc)
        self.assertEqual(peer.count(), expected_total)
        lines = [l for l in service.log_lines() if "|%s|" % SUBJECT in l]
        self.assertIn(len(lines), (expected_total - 1, expected_total), lines)
        return proc

    def check_before_delete(self, service, peer, received_before):
        """A kill before the delete: the file stays and goes once more."""
        self.assertEqual(service.pickup(), [NAME.encode()])
        self.assertEqual(peer.count(), received_before)
        self.restart_and_settle(service, peer, received_before + 1)

    # Before the server has the text: one delivery, after the restart.

    def test_after_load(self):
        service, peer, _ = self.run_until_killed(
            lambda s: self.strace(s, "-e", "trace=socket", "-e", "inject=socket:signal=KILL"))
        self.assertIn(b"Processing file", service.trace())
        self.check_before_delete(service, peer, 0)

    def test_after_connect(self):
        service, peer, _ = self.run_until_killed(
            lambda s: self.strace(s, "-e", "trace=sendto", "-e", "inject=sendto:signal=KILL:when=1"))
        self.assertIn(b"Connect to:", service.trace())
        self.check_before_delete(service, peer, 0)

    def test_in_the_middle_of_the_text(self):
        body = ("x" * 76 + "\r\n") * 8000  # over half a megabyte
        service, peer, _ = self.run_until_killed(
            lambda s: self.strace(s, "-e", "trace=sendto", "-e", "inject=sendto:signal=KILL:when=5"), body)
        self.assertIn(b"Command: [DATA]", service.trace())
        self.check_before_delete(service, peer, 0)

    # After the server accepted the text, before the delete: two deliveries.

    def test_after_the_final_dot_before_the_reply(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        peer.hold(True)
        service.drop(NAME, queue_text(peer.port, SUBJECT))
        proc = service.start()
        self.assertTrue(wait_for(lambda: b"<Message data>" in service.trace(), 60))
        service.kill(proc)
        peer.hold(False)
        # aiosmtpd drops a text whose client vanished before the reply; a server
        # that keeps it makes this the one case with two deliveries.
        time.sleep(1)
        self.check_before_delete(service, peer, peer.count())

    counts = None

    def calibrate(self):
        """Counts, in one clean run, the calls up to the delete: opens of the
        source and of the trace file, flushes before the archive copy is
        published. The kill points below are the next such call."""
        if KillPoints.counts is not None:
            return KillPoints.counts
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.drop(NAME, queue_text(peer.port, SUBJECT))
        proc = service.start(prefix=self.strace(service, "-e", "trace=openat,unlink,fsync,renameat2"))
        self.assertTrue(wait_for(lambda: service.pickup() == [] and service.result_line(SUBJECT), 60))
        service.kill(proc)
        calls = service.read(service.path("strace.log")).decode().splitlines()
        # strace counts calls per thread for "when=": keep the worker's only.
        worker = next(c for c in calls if re.search(r"unlink\(.*k\.nvq", c)).split()[0]
        calls = [c for c in calls if c.split()[0] == worker]
        unlink = next(i for i, c in enumerate(calls) if re.search(r"unlink\(.*k\.nvq", c))
        publish = next(i for i, c in enumerate(calls) if re.search(r"renameat2\(.*k\.hst", c))
        KillPoints.counts = dict(
            source_opens=sum(1 for c in calls[:unlink] if re.search(r"openat\(.*k\.nvq", c)),
            trace_opens=sum(1 for c in calls[:unlink] if re.search(r"openat\(.*trace\.log", c)),
            copy_flush=sum(1 for c in calls[:publish] if re.search(r"fsync\(", c)))
        return KillPoints.counts

    def test_after_the_reply_before_the_copy_and_after_the_delete(self):
        counts = self.calibrate()
        source_opens, trace_opens = counts["source_opens"], counts["trace_opens"]
        self.assertGreaterEqual(source_opens, 2, "a load and a copy open the source")

        # The copy's open of the source is the last one before the delete.
        service, peer, _ = self.run_until_killed(lambda s: self.strace(
            s, "-e", "trace=openat", "-e", "inject=openat:signal=KILL:when=%d" % source_opens,
            "-P", s.path("pickup/" + NAME)))
        self.assertEqual(service.listing("sent"), [])
        self.check_before_delete(service, peer, 1)

        # The first trace line after the delete: the file is gone, never sent again.
        service, peer, _ = self.run_until_killed(lambda s: self.strace(
            s, "-e", "trace=openat", "-e", "inject=openat:signal=KILL:when=%d" % (trace_opens + 1),
            "-P", s.path("trace.log")))
        self.assertEqual(service.pickup(), [])
        self.assertEqual(peer.count(), 1)
        self.assertEqual(service.listing("sent"), ["k.hst"])
        proc = service.start()
        self.assertTrue(wait_for(lambda: service.trace().count(b"Mail pickup directory changed") == 2, 60))
        self.assertFalse(wait_for(lambda: peer.count() > 1, 4))
        self.assertAlive(service, proc)

    def test_during_the_copy_no_partial_file_takes_the_archive_name(self):
        flush = self.calibrate()["copy_flush"]
        for call, when in (("fsync", flush), ("renameat2", 1)):
            with self.subTest(killed_at=call):
                service, peer, original = self.run_until_killed(lambda s: self.strace(
                    s, "-e", "trace=" + call, "-e", "inject=%s:signal=KILL:when=%d" % (call, when)),
                    settled=True)
                self.assertNotIn("k.hst", service.listing("sent"))
                self.check_before_delete(service, peer, 1)
                self.assertEqual(service.read(service.path("sent/k.hst")), original)

    def test_after_the_copy_before_the_delete(self):
        service, peer, original = self.run_until_killed(lambda s: self.strace(
            s, "-e", "trace=unlink", "-e", "inject=unlink:signal=KILL", "-P", s.path("pickup/" + NAME)))
        self.assertEqual(service.read(service.path("sent/k.hst")), original)
        self.check_before_delete(service, peer, 1)
        copies = service.listing("sent")
        self.assertEqual(len(copies), 2, copies)
        self.assertTrue(any(c.endswith(".mim") for c in copies), copies)


class StopWhileStalled(FaultTest):
    def test_a_stop_during_a_held_delivery_ends_the_process_and_the_file_goes_again(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        notify = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        notify.bind(service.path("notify"))
        notify.setblocking(False)
        self.addCleanup(notify.close)
        peer.hold(True)
        service.drop(NAME, queue_text(peer.port, SUBJECT))
        proc = service.start(service_mode=True, extra_env={"NOTIFY_SOCKET": service.path("notify")})
        self.assertTrue(wait_for(lambda: b"<Message data>" in service.trace(), 60))
        os.kill(proc.pid, signal.SIGTERM)
        # The stop grace (20 s after the first cycle) and the wait for the worker (10 to 12 s).
        self.assertEqual(proc.wait(90), 0)
        notes = b""
        while True:
            try:
                notes += notify.recv(4096)
            except BlockingIOError:
                break
        self.assertIn(b"STOPPING=1", notes)
        self.assertEqual(service.pickup(), [NAME.encode()], "the file in delivery stays")
        peer.hold(False)
        time.sleep(1)
        before = peer.count()  # 0 here: aiosmtpd drops a text whose client vanished
        proc = service.start()
        self.assertTrue(wait_for(lambda: service.pickup() == [], 60))
        self.assertTrue(wait_for(lambda: peer.count() == before + 1, 10))
        self.assertAlive(service, proc)
