"""Pickup folder and queue files: odd entries, odd names, odd contents, a
folder that goes away, and every input known to have broken the engine."""

import glob
import os
import random
import resource
import socket
import time

from harness import (FaultTest, Peer, SANITIZED, Service, control_headers, cpu_seconds, queue_text,
                     wait_for)


class OddEntries(FaultTest):
    def test_entries_that_are_no_regular_file_fail_at_once_and_block_nothing(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        pickup = service.path("pickup")
        os.mkdir(os.path.join(pickup, "dir.nvq"))
        os.mkfifo(os.path.join(pickup, "fifo.nvq"))
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(os.path.join(pickup, "sock.nvq"))
        self.addCleanup(listener.close)
        os.symlink(os.path.join(pickup, "nowhere"), os.path.join(pickup, "dangling.nvq"))
        os.symlink("/dev/zero", os.path.join(pickup, "zero.nvq"))
        odd = ["dangling.nvq", "dir.nvq", "fifo.nvq", "sock.nvq", "zero.nvq"]
        for i in range(3):
            service.submit("good%d.nvq" % i, peer.port)
        proc = service.start()

        self.assertTrue(wait_for(lambda: service.pickup_holds_only(odd), 60), service.pickup())
        self.assertTrue(wait_for(lambda: peer.count() == 3, 10))
        # Passes go on: every odd entry is tried again, none blocks its pass.
        self.assertTrue(wait_for(lambda: min(service.processed_count(n) for n in odd) >= 3, 30),
                        [service.processed_count(n) for n in odd])
        self.assertAlive(service, proc)
        self.assertEqual(len(service.log_lines()), 3)

    def test_files_removed_during_a_pass_cost_nothing_but_themselves(self):
        service = Service(self, keep_sent=0)
        peer = Peer(self, service.path("mail"))
        names = ["gone%03d.nvq" % i for i in range(300)]
        for name in names:
            service.submit(name, peer.port)
        proc = service.start()
        self.assertTrue(wait_for(lambda: peer.count() > 0, 60))
        taken = []  # gone before we came to them: the service had them
        for name in names:  # while the pass is at its first files
            try:
                os.unlink(service.path("pickup/" + name))
            except FileNotFoundError:
                taken.append(name)
        service.submit("last.nvq", peer.port)
        self.assertTrue(wait_for(lambda: "last" in peer.subjects(), 60))
        self.assertTrue(wait_for(lambda: service.pickup() == [], 10), service.pickup())
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == peer.count(), 10))
        self.assertAlive(service, proc)
        subjects = peer.subjects()
        self.assertEqual(len(subjects), len(set(subjects)), "none delivered twice")
        for name in taken:
            self.assertIn(name[:-4], subjects)
        self.assertLess(len(taken), len(names), "the removals came too late to test anything")

    def test_odd_names_are_delivered_and_a_taken_archive_name_gives_a_unique_copy(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        long_name = "n" * 251 + ".nvq"  # 255 bytes, the most a name may have
        names = {"with blank.nvq": "blank", long_name: "long", "-dash.nvq": "dash",
                 "taken.nvq": "taken", "caf\u00e9.nvq": "utf-8 name",
                 "\udce9t\udce9.nvq": "name not in utf-8"}  # the bytes e9 74 e9
        for name, subject in names.items():
            service.drop(name, queue_text(peer.port, subject))
        with open(service.path("sent/taken.hst"), "wb") as f:
            f.write(b"an earlier copy\r\n")
        proc = service.start()

        self.assertTrue(wait_for(lambda: service.pickup() == [], 60), service.pickup())
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == len(names), 10), service.log_lines())
        self.assertEqual(sorted(peer.subjects()), sorted(names.values()))
        sent = set(os.listdir(os.fsencode(service.path("sent"))))
        for name in ("with blank.hst", "-dash.hst", "n" * 251 + ".hst", "caf\u00e9.hst", "\udce9t\udce9.hst"):
            self.assertIn(os.fsencode(name), sent)
        self.assertEqual(service.read(service.path("sent/taken.hst")), b"an earlier copy\r\n")
        stored = service.result_line("taken").split("|")[3]
        self.assertTrue(stored.endswith(".mim"), stored)
        self.assertIn(os.fsencode(stored), sent)
        self.assertAlive(service, proc)


def hand_made_cases(port):
    head = control_headers(port)
    rng = random.Random(13)
    binary = bytes(rng.randrange(256) for _ in range(4096))
    return {
        "empty.nvq": b"",
        "headers-only.nvq": head + b"To: bob@example.test\r\nSubject: headers only\r\n",
        "no-blank-line.nvq": head + b"To: bob@example.test\r\nSubject: no blank\r\nbody at once\r\n",
        "nul.nvq": head + b"To: bob@example.test\r\nSubject: nul\r\n\r\nA\x00B\x00\x00C\r\n",
        "nul-header.nvq": head + b"To: bob@exa\x00mple.test\r\nSub\x00ject: x\r\n\r\nbody\r\n",
        "cr-only.nvq": (head + b"To: bob@example.test\r\nSubject: cr only\r\n\r\none\r\ntwo\r\n")
        .replace(b"\r\n", b"\r"),
        "lf-only.nvq": (head + b"To: bob@example.test\r\nSubject: lf only\r\n\r\none\r\ntwo\r\n")
        .replace(b"\r\n", b"\n"),
        "cr-cr-lf.nvq": (head + b"To: bob@example.test\r\nSubject: crcrlf\r\n\r\none\r\n")
        .replace(b"\r\n", b"\r\r\n"),
        "binary.nvq": binary,
        "binary-body.nvq": head + b"To: bob@example.test\r\nSubject: binary body\r\n\r\n" + binary,
        "multipart-unclosed.nvq": head + b"To: bob@example.test\r\nSubject: unclosed\r\n"
        b"Content-Type: multipart/mixed; boundary=\"b\"\r\n\r\n--b\r\nContent-Type: text/plain\r\n"
        b"\r\npart",
    }


def nested_multipart(port, depth):
    parts = [control_headers(port), b"To: bob@example.test\r\nSubject: nested\r\n"]
    for level in range(depth):
        parts.append(b"Content-Type: multipart/mixed; boundary=\"b%d\"\r\n\r\n--b%d\r\n" % (level, level))
    parts.append(b"Content-Type: text/plain\r\n\r\ndeep\r\n")
    return b"".join(parts)


class OddContents(FaultTest):
    def check_each_loaded_or_kept(self, service, peer, names):
        """Each file either stays (load failed) or left with a copy and a line."""
        kept = [n for n in names if os.fsencode(n) in service.pickup()]
        gone = [n for n in names if n not in kept]
        copies = service.listing("sent") + service.listing("failed")
        for name in gone:
            self.assertIn(name[:-4] + ".hst", copies, "%s left without a copy" % name)
        return kept, gone

    def test_malformed_files_load_or_stay_and_never_stop_the_service(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        cases = hand_made_cases(peer.port)
        for name, data in cases.items():
            service.drop(name, data)
        proc = service.start()
        self.assertTrue(wait_for(lambda: all(service.processed_count(n) >= 2 or
                                             os.fsencode(n) not in service.pickup() for n in cases), 90),
                        service.pickup())
        service.submit("last.nvq", peer.port)
        # The result line is written after the file is deleted: wait for it, not for the file.
        self.assertTrue(wait_for(lambda: "last" in peer.subjects() and service.result_line("last"), 30))
        self.assertAlive(service, proc)
        kept, gone = self.check_each_loaded_or_kept(service, peer, list(cases))
        self.assertEqual(len(service.log_lines()), len(gone) + 1, service.log_lines())
        print("kept after a load failure: %s" % (kept or "none"))

    def test_deep_nesting_on_a_small_stack(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.drop("nested.nvq", nested_multipart(peer.port, 100000))
        service.submit("after.nvq", peer.port)
        # glibc takes the stack limit as the size of new threads' stacks too.
        stack = (4 if SANITIZED else 1) << 20

        def small_stack():
            resource.setrlimit(resource.RLIMIT_STACK, (stack, stack))

        proc = service.start(preexec=small_stack)
        self.assertTrue(wait_for(lambda: "after" in peer.subjects(), 120), service.stderr())
        self.assertTrue(wait_for(lambda: service.processed_count("nested.nvq") >= 1, 30))
        time.sleep(2)
        self.assertAlive(service, proc)
        self.check_each_loaded_or_kept(service, peer, ["nested.nvq", "after.nvq"])

    def test_a_64_gib_sparse_file_is_a_load_failure_under_an_address_space_limit(self):
        if SANITIZED:
            self.skipTest("the sanitizer reserves more address space than any useful limit")
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        with open(service.path("pickup/huge.nvq"), "wb") as f:
            f.write(control_headers(peer.port) + b"Subject: huge\r\n\r\n")
            f.truncate(64 << 30)
        service.submit("after.nvq", peer.port)

        def limited():
            resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))

        proc = service.start(preexec=limited)
        self.assertTrue(wait_for(lambda: "after" in peer.subjects(), 120), service.stderr())
        self.assertTrue(wait_for(lambda: service.processed_count("huge.nvq") >= 2, 120))
        self.assertAlive(service, proc)
        self.assertEqual(service.pickup(), [b"huge.nvq"])


class PickupFolder(FaultTest):
    def test_a_vanished_or_replaced_folder_costs_no_cpu_and_delivery_resumes(self):
        service, peer, proc = self.running_with_peer()
        pickup = service.path("pickup")
        os.rename(pickup, service.path("pickup.away"))
        for phase in ("removed", "a file"):
            if phase == "a file":
                with open(pickup, "w") as f:
                    f.write("not a folder\n")
            before = cpu_seconds(proc.pid)
            time.sleep(4)
            used = cpu_seconds(proc.pid) - before
            self.assertLess(used, 1.0, "busy while the folder is %s: %.2f s of CPU in 4 s" % (phase, used))
            self.assertAlive(service, proc)
        os.unlink(pickup)
        os.rename(service.path("pickup.away"), pickup)
        service.submit("back.nvq", peer.port)
        self.assertTrue(wait_for(lambda: "back" in peer.subjects(), 30))
        self.assertTrue(wait_for(lambda: service.pickup() == [], 10))


def corpus_sample(count):
    shared = os.environ.get("TELMORAQ_SHARED_DIR", "")
    files = sorted(glob.glob(os.path.join(shared, "corpus", "**", "*.eml"), recursive=True)) if shared else []
    if not files:
        return []
    step = max(1, len(files) // count)
    return files[::step][:count]


class PoisonReplay(FaultTest):
    def test_fuzz_crashers_and_real_messages_through_the_running_service(self):
        fuzz = os.environ.get("TELMORAQ_FUZZ_DIR", "")
        crashers = sorted(glob.glob(os.path.join(fuzz, "crashers", "*", "*")))
        sample = corpus_sample(20 if SANITIZED else 40)
        if not crashers and not sample:
            self.skipTest("no kept crashers and no shared corpus (../shared/corpus)")
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        names = []
        for i, path in enumerate(crashers + sample):
            name = "in%03d.nvq" % i
            with open(path, "rb") as f:
                data = f.read()
            service.drop(name, control_headers(peer.port) + data)
            names.append(name)
        proc = service.start()
        settled = lambda: all(service.processed_count(n) >= 1 for n in names)
        self.assertTrue(wait_for(settled, 240), "not all inputs tried: %d left" % len(service.pickup()))
        service.submit("zz-last.nvq", peer.port, "behind them all")
        self.assertTrue(wait_for(lambda: "behind them all" in peer.subjects(), 120), service.stderr())
        self.assertAlive(service, proc)
        kept = [n for n in names if os.fsencode(n) in service.pickup()]
        copies = service.listing("sent") + service.listing("failed")
        for name in names:
            if name not in kept:
                self.assertIn(name[:-4] + ".hst", copies, name)
        print("%d inputs (%d crashers, %d corpus), %d left after a load failure, %d delivered"
              % (len(names), len(crashers), len(sample), len(kept), peer.count() - 1))
