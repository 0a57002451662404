"""Local storage: archive folders that are full, missing, read-only, on another
file system or failing their flush; the order of the durable steps; result
log and trace files that cannot be written."""

import os
import re
import time

from harness import (FaultTest, Peer, Service, require_namespaces, require_strace, today_log_name,
                     wait_for)

HELD_EVENT = "TelmoraQ warning 0x80000067"


def in_namespace(script):
    """A prefix that runs `script` in new user and mount namespaces, then the service."""
    return ["unshare", "-Urm", "sh", "-c", script + '\nexec "$@"', "sh"]


class ArchiveFolder(FaultTest):
    def inside(self, proc, path):
        """`path` as the namespaced process sees it."""
        return "/proc/%d/root%s" % (proc.pid, path)

    def assertHeld(self, service, peer, name, subject):
        held = name[:-4] + ".held"
        self.assertTrue(wait_for(lambda: os.fsencode(held) in service.pickup(), 60), service.pickup())
        self.assertTrue(wait_for(lambda: service.result_line(subject) is not None, 10))
        self.assertNotIn(os.fsencode(name), service.pickup())
        return held

    def test_a_full_and_a_read_only_archive_folder_hold_the_file_in_place(self):
        require_namespaces(self)
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        sent, failed = service.path("sent"), service.path("failed")
        proc = service.start(prefix=in_namespace(
            "mount -t tmpfs -o size=64k none %s || exit 90\n"
            "head -c 1048576 /dev/zero > %s/fill 2>/dev/null\n"
            "mount --bind %s %s && mount -o remount,bind,ro %s || exit 91" % (sent, sent, failed, failed, failed)))
        service.submit("good.nvq", peer.port, "into a full folder")
        service.submit("refused.nvq", peer.port, "into a read-only folder", to="refuse@example.test")

        self.assertHeld(service, peer, "good.nvq", "into a full folder")
        self.assertHeld(service, peer, "refused.nvq", "into a read-only folder")
        self.assertAlive(service, proc)
        self.assertEqual(peer.subjects(), ["into a full folder"])
        self.assertEqual(sorted(os.listdir(self.inside(proc, sent))), ["fill"], "no partial copy left")
        # The event follows the rename that assertHeld saw.
        self.assertTrue(wait_for(lambda: service.events().count(HELD_EVENT) == 2, 10), service.events())
        time.sleep(2.5)  # a held file is no queue file: never sent again
        self.assertEqual(peer.count(), 1)

    def test_a_missing_folder_holds_and_one_on_another_file_system_takes_the_copy(self):
        require_namespaces(self)
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        os.rmdir(service.path("sent"))
        failed = service.path("failed")
        proc = service.start(prefix=in_namespace("mount -t tmpfs -o size=16m none %s || exit 90" % failed))
        service.submit("good.nvq", peer.port, "into a missing folder")
        service.submit("refused.nvq", peer.port, "across file systems", to="refuse@example.test")
        original = service.read(service.path("pickup/refused.nvq"))

        self.assertHeld(service, peer, "good.nvq", "into a missing folder")
        self.assertTrue(wait_for(lambda: "refused.nvq".encode() not in service.pickup(), 30))
        self.assertTrue(wait_for(lambda: service.result_line("across file systems") is not None, 10))
        self.assertEqual(os.listdir(self.inside(proc, failed)), ["refused.hst"])
        self.assertEqual(service.read(self.inside(proc, failed + "/refused.hst")), original)
        self.assertIn("|refused.hst|", service.result_line("across file systems"))
        self.assertAlive(service, proc)

    def test_a_failing_flush_is_a_failed_copy(self):
        require_strace(self)
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.submit("good.nvq", peer.port, "flush fails")
        proc = service.start(prefix=["strace", "-f", "-qq", "-o", service.path("strace.log"),
                                     "-e", "trace=fsync,fdatasync", "-e", "inject=fsync:error=EIO"])
        self.assertHeld(service, peer, "good.nvq", "flush fails")
        self.assertAlive(service, proc)
        self.assertEqual(service.listing("sent"), [], "no copy published after a failed flush")
        self.assertEqual(peer.count(), 1)
        # The rename to ".held" took effect although the folder flush after it failed.
        held = HELD_EVENT + " A queue file could not be archived and was kept as " + \
            service.path("pickup/good.held")
        self.assertTrue(wait_for(lambda: held in service.events(), 10), service.events())


    def test_a_failing_folder_flush_keeps_every_copy_made_and_holds_the_file(self):
        require_strace(self)
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.submit("good.nvq", peer.port, "folder flush fails")
        original = service.read(service.path("pickup/good.nvq"))
        proc = service.start(prefix=["strace", "-f", "-qq", "-o", service.path("strace.log"), "-e",
                                     "trace=fsync", "-e", "inject=fsync:error=EIO", "-P", service.path("sent")])
        self.assertHeld(service, peer, "good.nvq", "folder flush fails")
        self.assertAlive(service, proc)
        # Both copies reached their names before the flush of the folder failed;
        # they stay, and the line names the last one tried.
        copies = service.listing("sent")
        self.assertEqual(len(copies), 2, copies)
        self.assertIn("good.hst", copies)
        for name in copies:
            self.assertEqual(service.read(service.path("sent/" + name)), original)
        self.assertIn("|%s|" % [c for c in copies if c.endswith(".mim")][0],
                      service.result_line("folder flush fails"))


class DurableOrder(FaultTest):
    def test_copy_and_folder_are_flushed_before_the_source_goes(self):
        require_strace(self)
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.submit("good.nvq", peer.port, "durable")
        log = service.path("strace.log")
        proc = service.start(prefix=["strace", "-f", "-qq", "-y", "-o", log,
                                     "-e", "trace=%file,%desc,fsync,fdatasync"])
        self.assertTrue(wait_for(lambda: service.pickup() == [], 60), service.pickup())
        self.assertTrue(wait_for(lambda: service.result_line("durable") is not None, 10))
        service.kill(proc)
        calls = service.read(log).decode("utf-8", "replace").splitlines()
        sent, source = service.path("sent"), service.path("pickup/good.nvq")

        def first(pattern, after=-1):
            for i, call in enumerate(calls):
                if i > after and re.search(pattern, call):
                    return i
            self.fail("no call matching %r after line %d" % (pattern, after))

        copy_flush = first(r"fsync\(\d+<%s/\.copy-\w+>\) = 0" % re.escape(sent))
        publish = first(r"(renameat2|link|linkat)\(.*\"%s/good\.hst\"" % re.escape(sent), copy_flush)
        folder_flush = first(r"fsync\(\d+<%s>\) = 0" % re.escape(sent), publish)
        unlink = first(r"unlink(at)?\(.*\"%s\"" % re.escape(source))
        self.assertLess(folder_flush, unlink, "\n".join(calls[copy_flush:unlink + 1]))
        self.assertEqual(service.read(service.path("sent/good.hst")).count(b"durable"), 1)


def zone_with_midnight_in(seconds):
    """A TZ value whose local midnight comes `seconds` from now."""
    now = time.time()
    local_now = 86400 - seconds
    offset = int(now % 86400 - local_now) % 86400  # west of UTC, POSIX sign
    return "FLT+%d:%02d:%02d" % (offset // 3600, offset // 60 % 60, offset % 60)


class Logs(FaultTest):
    def test_result_log_gone_full_or_a_folder_costs_the_line_only(self):
        service = Service(self, trace="/dev/full")
        os.symlink("/dev/full", service.path("debug/trees.log"))
        peer = Peer(self, service.path("mail"))
        proc = service.start()
        self.assertTrue(wait_for(lambda: "0x40000064" in service.events(), 30))
        log_dir = service.path("log")
        today = os.path.join(log_dir, today_log_name())

        def no_log_folder():
            os.rmdir(log_dir)

        def full_log_file():
            os.mkdir(log_dir)
            os.symlink("/dev/full", today)

        def folder_in_its_place():
            os.unlink(today)
            os.mkdir(today)

        for step, (arrange, subject) in enumerate(((no_log_folder, "no folder"), (full_log_file, "disk full"),
                                                   (folder_in_its_place, "a folder"))):
            arrange()
            service.submit("m%d.nvq" % step, peer.port, subject)
            self.assertTrue(wait_for(lambda: subject in peer.subjects(), 30), subject)
            self.assertTrue(wait_for(lambda: service.pickup() == [], 10))
            self.assertTrue(wait_for(lambda: "m%d.hst" % step in service.listing("sent"), 10))
            self.assertIsNone(service.result_line(subject))
        os.rmdir(today)
        service.submit("back.nvq", peer.port, "log back")
        self.assertTrue(wait_for(lambda: service.result_line("log back") is not None, 30))
        self.assertEqual(len(service.log_lines()), 1)
        self.assertAlive(service, proc)

    def test_a_day_change_during_a_pass_splits_the_lines_over_two_files(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        count = 40
        for i in range(count):
            service.submit("d%02d.nvq" % i, peer.port, "day %02d" % i)
        proc = service.start(extra_env={"TZ": zone_with_midnight_in(3)})
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == count, 120), len(service.log_lines()))
        self.assertEqual(peer.count(), count)
        for name in service.listing("log"):
            lines = service.read(service.path("log/" + name)).decode().splitlines()
            self.assertTrue(lines[0].startswith("Date and Time|"), name)
            self.assertEqual(sum(l.startswith("Date and Time|") for l in lines), 1, name)
        self.assertAlive(service, proc)
        print("result log files: %s" % service.listing("log"))
