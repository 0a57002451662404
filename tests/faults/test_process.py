"""The process and its surroundings: two instances on one folder, a tight
descriptor limit, a service manager whose socket has gone."""

import os
import resource
import time

from harness import FaultTest, Peer, Service, open_descriptors, wait_for


class Instances(FaultTest):
    def test_two_instances_on_one_folder_deliver_each_file_once(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        count = 60
        first = service.start()
        second = service.start()
        self.assertTrue(service.wait_first_pass())
        for i in range(count):
            service.submit("two%02d.nvq" % i, peer.port, "pair %02d" % i)
            if i % 10 == 9:
                time.sleep(0.3)  # files arrive while both are passing
        self.assertTrue(wait_for(lambda: service.pickup() == [], 120), service.pickup())
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == count, 10))
        subjects = peer.subjects()
        self.assertEqual(sorted(subjects), ["pair %02d" % i for i in range(count)])
        self.assertEqual(sorted(service.listing("sent")), ["two%02d.hst" % i for i in range(count)])
        self.assertAlive(service, first)
        self.assertAlive(service, second)


class Limits(FaultTest):
    def test_thirty_two_descriptors_deliver_everything_and_leak_none(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))

        def few_descriptors():
            resource.setrlimit(resource.RLIMIT_NOFILE, (32, 32))

        proc = service.start(preexec=few_descriptors)
        self.assertTrue(service.wait_first_pass())
        time.sleep(1.5)
        before = open_descriptors(proc.pid)
        count = 200
        for i in range(count):
            service.submit("fd%03d.nvq" % i, peer.port)
        self.assertTrue(wait_for(lambda: service.pickup() == [], 240), len(service.pickup()))
        self.assertTrue(wait_for(lambda: len(service.log_lines()) == count, 10))
        self.assertEqual(peer.count(), count)
        time.sleep(1.5)  # a pass or two on the empty folder
        self.assertEqual(open_descriptors(proc.pid), before, os.listdir("/proc/%d/fd" % proc.pid))
        self.assertAlive(service, proc)


    def test_with_no_descriptor_left_a_file_waits_and_goes_when_one_is_free(self):
        service, peer, proc = self.running_with_peer()
        time.sleep(1.5)
        before = open_descriptors(proc.pid)
        soft, hard = resource.prlimit(proc.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(proc.pid, resource.RLIMIT_NOFILE, (before, hard))
        service.submit("waits.nvq", peer.port)
        time.sleep(4)  # a few passes in which nothing can be opened
        self.assertEqual(service.pickup(), [b"waits.nvq"], "a load that cannot open the file fails")
        self.assertEqual(peer.count(), 0)
        self.assertAlive(service, proc)
        resource.prlimit(proc.pid, resource.RLIMIT_NOFILE, (soft, hard))
        self.assertTrue(wait_for(lambda: "waits" in peer.subjects(), 30))
        self.assertTrue(wait_for(lambda: "waits.hst" in service.listing("sent"), 10))
        time.sleep(1.5)
        self.assertEqual(open_descriptors(proc.pid), before)


class ServiceManager(FaultTest):
    def test_a_removed_notify_socket_is_ignored(self):
        service = Service(self)
        peer = Peer(self, service.path("mail"))
        service.submit("n.nvq", peer.port, "no manager")
        proc = service.start(service_mode=True, extra_env={"NOTIFY_SOCKET": service.path("gone/notify")})
        self.assertTrue(wait_for(lambda: "no manager" in peer.subjects(), 60), service.stderr())
        self.assertTrue(wait_for(lambda: service.result_line("no manager") is not None, 10))
        self.assertIn("0x40000064", service.events())
        self.assertAlive(service, proc)
