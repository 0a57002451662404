"""Mode bits: the service runs as uid 65534, for whom they hold (root ignores
them): an unreadable queue file, archive, log and trace that cannot be
written, a pickup folder that cannot be listed."""

import os
import time

from harness import NOBODY, FaultTest, Peer, Service, cpu_seconds, require_nobody, wait_for


class AsNobody(FaultTest):
    def test_mode_bits_cost_only_what_they_deny(self):
        require_nobody(self)
        service = Service(self, shared=True)
        peer = Peer(self, service.path("mail"))
        service.submit("locked.nvq", peer.port, "unreadable")
        os.chmod(service.path("pickup/locked.nvq"), 0)
        os.chmod(service.path("sent"), 0o500)
        service.submit("p1.nvq", peer.port, "archive not writable")
        proc = service.start(prefix=NOBODY)

        # An unreadable file stays and is tried again; the file behind it goes,
        # and with no writable archive it is held in place.
        self.assertTrue(wait_for(lambda: b"p1.held" in service.pickup(), 60), service.pickup())
        self.assertTrue(wait_for(lambda: service.processed_count("locked.nvq") >= 2, 30))
        self.assertEqual(peer.subjects(), ["archive not writable"])
        self.assertIsNotNone(service.result_line("archive not writable"))
        self.assertIn(b"locked.nvq", service.pickup())

        # Log folder and trace file not writable: delivery and copy as ever.
        os.chmod(service.path("sent"), 0o777)
        os.chmod(service.path("log"), 0o555)
        for name in service.listing("log"):
            os.chmod(service.path("log/" + name), 0o444)
        os.chmod(service.path("trace.log"), 0o444)
        service.submit("p2.nvq", peer.port, "log not writable")
        self.assertTrue(wait_for(lambda: "p2.hst" in service.listing("sent"), 60), service.pickup())
        self.assertIn("log not writable", peer.subjects())
        self.assertIsNone(service.result_line("log not writable"))

        # A pickup folder that cannot be listed: quiet passes, then delivery resumes.
        os.chmod(service.path("log"), 0o777)
        for name in service.listing("log"):
            os.chmod(service.path("log/" + name), 0o666)
        os.chmod(service.path("pickup"), 0)
        before = cpu_seconds(proc.pid)
        service.submit("p3.nvq", peer.port, "folder back")
        time.sleep(3)
        self.assertLess(cpu_seconds(proc.pid) - before, 1.0)
        self.assertNotIn("folder back", peer.subjects())
        os.chmod(service.path("pickup"), 0o777)
        self.assertTrue(wait_for(lambda: "folder back" in peer.subjects(), 30))
        self.assertTrue(wait_for(lambda: service.result_line("folder back") is not None, 10))
        self.assertAlive(service, proc)
