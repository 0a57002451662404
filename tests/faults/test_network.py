"""Network faults seen from the queue: what the client tests cannot show is
that each failure still ends in a failed copy, a deleted source and a result
line, and that the files behind it go out in the same run."""

from harness import FaultTest, Peer, Proxy, Service, closed_port, wait_for


class ThroughTheService(FaultTest):
    def test_refused_cut_and_stalled_servers_each_fail_one_file_and_the_queue_goes_on(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        cut = Proxy(self, peer.port, "cut-command", "RCPT")
        stall = Proxy(self, peer.port, "stall-command", "MAIL")
        service.submit("refused.nvq", closed_port(), "refused port")
        service.submit("cut.nvq", cut.port, "cut after rcpt")
        service.submit("stall.nvq", stall.port, "stall after mail")
        service.submit("good.nvq", peer.port, "good one")
        proc = service.start()

        # The refused connect waits out its limit, the stall its command limits.
        self.assertTrue(wait_for(lambda: service.pickup() == [], 150), service.pickup())
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == 4, 10), service.log_lines())
        self.assertAlive(service, proc)
        self.assertEqual(peer.subjects(), ["good one"])
        self.assertIn("Error #0: Success", self.assertFateKept(service, "good.nvq", "good one", "sent"))
        for name, subject in (("refused.nvq", "refused port"), ("cut.nvq", "cut after rcpt"),
                              ("stall.nvq", "stall after mail")):
            line = self.assertFateKept(service, name, subject, "failed")
            self.assertNotIn("Error #0: Success", line)
