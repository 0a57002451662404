"""Producers and settings: queue files written in steps, the settings file
edited, cut, replaced, rewritten in place and locked while the service runs,
and the wall clock set back under the settings re-read."""

import glob
import os
import signal
import subprocess
import threading
import time
import unittest

from harness import FaultTest, Peer, Service, queue_text, tool_works, wait_for

# The re-read comes on the first pass after 30 whole seconds: at most 32 s
# after the last one on a machine that keeps up, more on one that does not.
REREAD = 45

FAKETIME = sorted(glob.glob("/usr/lib/*/faketime/libfaketimeMT.so.1") +
                  glob.glob("/usr/lib/faketime/libfaketimeMT.so.1"))


def numbered_body(count):
    return "".join("line %04d of the message\r\n" % i for i in range(count))


def identity(path):
    """What changes when a file is rewritten in place or replaced."""
    st = os.stat(path)
    return st.st_ino, st.st_mtime_ns, st.st_size


def replace_by_rename(path, data):
    """How a careful tool writes: a whole new file renamed over the old one."""
    with open(path + ".new", "wb") as f:
        f.write(data)
    os.rename(path + ".new", path)


def received_lines(message):
    """The body as received, less the line end that composing adds."""
    return message.split(b"\r\n\r\n", 1)[1].rstrip(b"\r\n").split(b"\r\n")


def temporaries(service):
    return [n for n in service.listing("") if n.startswith("registry.reg.")]


class Producers(FaultTest):
    def test_a_renaming_producer_is_delivered_once_and_whole(self):
        service, peer, proc = self.running_with_peer()
        body = numbered_body(400)
        data = queue_text(peer.port, "renamed", body=body)
        temp = service.path("pickup/.renamed.partial")
        with open(temp, "wb") as f:
            f.write(data[:len(data) // 2])
            f.flush()
            time.sleep(3)  # passes go by while the producer is half done
            f.write(data[len(data) // 2:])
        os.rename(temp, service.path("pickup/renamed.nvq"))

        self.assertTrue(wait_for(lambda: service.result_line("renamed") is not None, 30))
        self.assertEqual(peer.count(), 1)
        self.assertEqual(received_lines(peer.messages()[0]), body.encode().rstrip(b"\r\n").split(b"\r\n"))
        self.assertEqual(service.read(service.path("sent/renamed.hst")), data)
        time.sleep(2)
        self.assertEqual(peer.count(), 1, "delivered twice")
        self.assertAlive(service, proc)

    def test_an_in_place_writer_loses_nothing_the_service_saw(self):
        service, peer, proc = self.running_with_peer()
        data = queue_text(peer.port, "in place", body=numbered_body(400))
        with open(service.path("pickup/inplace.nvq"), "wb") as f:
            f.write(data[:len(data) // 2])
            f.flush()
            time.sleep(3)
            f.write(data[len(data) // 2:])

        # Whatever a pass made of it, the file is delivered, kept or still queued.
        settled = lambda: (service.result_line("in place") is not None or
                           service.processed_count("inplace.nvq") >= 3)
        self.assertTrue(wait_for(settled, 30), service.pickup())
        self.assertAlive(service, proc)
        line = service.result_line("in place")
        if line is None:
            self.assertEqual(service.pickup(), [b"inplace.nvq"])
            return
        stored = line.split("|")[3]
        copy = service.read(service.path(("sent/" if stored in service.listing("sent") else "failed/") + stored))
        self.assertTrue(copy and data.startswith(copy), "the copy is not what was written: %r" % copy[-80:])
        self.assertLessEqual(peer.count(), 1)
        print("in-place writer: %d of %d bytes archived as %s, %d message(s) received, %s"
              % (len(copy), len(data), stored, peer.count(),
                 "whole" if copy == data else "the rest went into the deleted file"))


class PickupChange(FaultTest):
    def test_a_new_pickup_folder_is_served_within_the_reread_and_the_old_one_left_alone(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        registry = service.path("registry.reg")
        original = service.read(registry)
        with open(registry, "rb") as first:
            proc = service.start()
            self.assertTrue(service.wait_first_pass())
            # The first read wrote back the two values the file lacked: into a new file,
            # leaving the one we hold as it was, and no temporary behind.
            self.assertEqual(os.fstat(first.fileno()).st_nlink, 0, "rewritten in place")
            self.assertEqual(first.read(), original)
        self.assertIn(b'"LogSeparator"="|"', service.read(registry))
        self.assertEqual(temporaries(service), [])

        os.mkdir(service.path("pickup2"))
        subprocess.run(["sed", "-i", "s|/pickup\"|/pickup2\"|", registry], check=True)
        edited = time.monotonic()
        edit = identity(registry)
        self.assertTrue(wait_for(lambda: b"changed: %s" % service.path("pickup2").encode() in service.trace(),
                                 REREAD), service.trace()[-300:])
        seen = time.monotonic() - edited
        service.submit("new.nvq", peer.port, "in the new folder", folder="pickup2")
        service.submit("old.nvq", peer.port, "left in the old folder")  # into pickup/
        old = identity(service.path("pickup/old.nvq"))

        self.assertTrue(wait_for(lambda: "in the new folder" in peer.subjects(), 30))
        service.submit("new2.nvq", peer.port, "second in the new folder", folder="pickup2")
        self.assertTrue(wait_for(lambda: "second in the new folder" in peer.subjects(), 30))
        self.assertEqual(identity(service.path("pickup/old.nvq")), old)
        self.assertEqual(service.processed_count("old.nvq"), 0)
        self.assertEqual(peer.count(), 2)
        self.assertEqual(service.trace().count(b"Mail pickup directory changed"), 2)
        self.assertEqual(identity(registry), edit, "rewritten although nothing changed")
        self.assertAlive(service, proc)
        print("new pickup folder served %.1f s after the edit" % seen)


class SettingsFile(FaultTest):
    def test_an_unparseable_file_gives_the_defaults_and_is_never_rewritten(self):
        for case in ("garbage", "utf-16 export", "zeros"):
            with self.subTest(case):
                service = Service(self)
                registry = service.path("registry.reg")
                good = service.read(registry).decode()
                data = {"garbage": b"this is no registry\r\n" + good.encode(),
                        "utf-16 export": ("\ufeffWindows Registry Editor Version 5.00" +
                                          good[len("REGEDIT4"):]).encode("utf-16-le"),
                        "zeros": bytes(4096)}[case]
                with open(registry, "wb") as f:
                    f.write(data)
                before = identity(registry)
                proc = service.start()
                # No pickup folder among the defaults: the start fails as it must.
                self.assertTrue(wait_for(lambda: proc.poll() is not None, 30), "still running")
                self.assertIn("0xC0000130", service.events())
                self.assertEqual(service.read(registry), data)
                self.assertEqual(identity(registry), before)
                self.assertEqual(temporaries(service), [])

    def test_a_file_cut_mid_line_keeps_what_it_has_takes_defaults_for_the_rest_and_stays(self):
        service = Service(self, keep_sent=0)
        peer = Peer(self, service.path("mail"))
        registry = service.path("registry.reg")
        whole = service.read(registry)
        start = whole.index(b'"KeepSentMails"')
        cut = start + 8
        with open(registry + ".cut", "wb") as f:
            subprocess.run(["head", "-c", str(cut), registry], stdout=f, check=True)
        os.rename(registry + ".cut", registry)
        service.submit("cut.nvq", peer.port, "after the cut")
        proc = service.start()

        self.assertTrue(wait_for(lambda: service.result_line("after the cut") is not None, 30))
        self.assertAlive(service, proc)
        # KeepSentMails 0 was in the part cut off: the default 1 keeps a copy.
        self.assertIn("cut.hst", service.listing("sent"))
        # A file ending inside a line may still be being written: never rewritten.
        self.assertEqual(service.read(registry), whole[:cut])
        self.assertEqual(temporaries(service), [])

    def test_a_lock_held_by_another_process_neither_stops_delivery_nor_is_written_through(self):
        if not tool_works(["flock", "-n", "/dev/null", "true"]):
            self.skipTest("flock(1) missing")
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        registry = service.path("registry.reg")
        before = service.read(registry)
        # -o: the lock stays with flock itself, so that killing its group frees it.
        holder = subprocess.Popen(["flock", "-o", registry, "sleep", "600"], start_new_session=True,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

        def release():
            if holder.poll() is None:
                os.killpg(holder.pid, signal.SIGKILL)
                holder.wait()

        self.addCleanup(release)
        self.assertTrue(wait_for(lambda: subprocess.run(["flock", "-n", registry, "true"]).returncode != 0, 10))
        service.submit("locked.nvq", peer.port, "while locked")
        proc = service.start()

        self.assertTrue(wait_for(lambda: service.result_line("while locked") is not None, 60), service.stderr())
        self.assertAlive(service, proc)
        # The values it lacks are not written without the lock, and never in place.
        self.assertEqual(service.read(registry), before)
        release()
        self.assertTrue(wait_for(lambda: b"LogSeparator" in service.read(registry), REREAD))
        self.assertEqual(temporaries(service), [])
        service.submit("after.nvq", peer.port, "after the lock")
        self.assertTrue(wait_for(lambda: "after the lock" in peer.subjects(), 30))


class InPlaceEdits(FaultTest):
    def rewrite_across_a_reread(self, keep_descriptor):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        registry = service.path("registry.reg")
        proc = service.start()
        self.assertTrue(service.wait_first_pass())
        first_pass = time.monotonic()
        good = service.read(registry)  # as the service wrote it back: nothing left to change

        # Truncate, half, the rest, over and over across a re-read: what a shell
        # redirection or an editor that saves in place does. A read in the
        # middle looks again; a write-back never replaces an unfinished file.
        stop = threading.Event()
        rounds = [0]

        def rewrite():
            f = open(registry, "r+b")
            while not stop.is_set():
                if keep_descriptor:
                    f.seek(0)
                    f.truncate()
                else:
                    f.close()
                    f = open(registry, "wb")
                f.write(good[:len(good) // 2])
                f.flush()
                f.write(good[len(good) // 2:])
                f.flush()
                rounds[0] += 1
                time.sleep(0.002)  # saves in quick succession, not one endless truncation
            f.close()

        time.sleep(max(0, first_pass + 27 - time.monotonic()))
        writer = threading.Thread(target=rewrite)
        writer.start()
        self.addCleanup(stop.set)
        time.sleep(9)
        stop.set()
        writer.join()

        self.assertAlive(service, proc)
        self.assertEqual(service.read(registry), good, "the writer's last text is not what stays")
        self.assertEqual(temporaries(service), [])
        # A read in the middle of a rewrite may run one period on defaults; the next one mends it.
        service.submit("after.nvq", peer.port, "after the rewrites")
        self.assertTrue(wait_for(lambda: "after the rewrites" in peer.subjects(), REREAD), service.pickup())
        self.assertAlive(service, proc)
        print("%d rewrites in place across the re-read" % rounds[0])

    def test_a_writer_opening_the_file_anew_each_time(self):
        self.rewrite_across_a_reread(keep_descriptor=False)

    def test_a_writer_keeping_its_descriptor(self):
        self.rewrite_across_a_reread(keep_descriptor=True)


class ClockJump(FaultTest):
    def test_a_clock_set_back_holds_the_settings_reread_but_not_the_passes(self):
        if not FAKETIME:
            self.skipTest("libfaketime missing (Debian package faketime): the wall clock cannot be moved")
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        offset = service.path("faketime")
        replace_by_rename(offset, b"+0\n")
        # The wall clock alone moves: the monotonic one, under the tick count, does not.
        proc = service.start(extra_env={
            "LD_PRELOAD": FAKETIME[0], "FAKETIME_TIMESTAMP_FILE": offset, "FAKETIME_NO_CACHE": "1",
            "FAKETIME_DONT_FAKE_MONOTONIC": "1",
            "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"})
        self.assertTrue(service.wait_first_pass())
        replace_by_rename(offset, b"-3600\n")
        os.mkdir(service.path("pickup2"))
        subprocess.run(["sed", "-i", "s|/pickup\"|/pickup2\"|", service.path("registry.reg")], check=True)
        changed = lambda: b"changed: %s" % service.path("pickup2").encode() in service.trace()

        service.submit("back.nvq", peer.port, "an hour back")
        self.assertTrue(wait_for(lambda: "an hour back" in peer.subjects(), 30), "passes stopped")
        self.assertTrue(wait_for(lambda: service.result_line("an hour back") is not None, 10))
        self.assertFalse(wait_for(changed, REREAD - 5), "settings read again although the clock went back")
        self.assertAlive(service, proc)
        replace_by_rename(offset, b"+0\n")  # the clock set right: the read is long overdue
        self.assertTrue(wait_for(changed, 10))
        print("result line while an hour back: %s" % service.result_line("an hour back"))
