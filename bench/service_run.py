"""One `telmoraq /NvDebug` process over a scratch set-up, for the whole-service benchmarks.

ServiceRun(build, work) makes pickup, sent, failed and log folders and a
settings file under WORK; submit() drops queue files with telmoraq-submit;
start() runs the service; progress() counts what is left, logged and
archived; status() reads the process's memory and descriptors from /proc.
"""

import glob
import os
import subprocess


class ServiceRun:
    def __init__(self, build, work):
        self.build = build
        self.folders = {name: os.path.join(work, name) for name in ("pickup", "sent", "failed", "log")}
        for folder in self.folders.values():
            os.makedirs(folder)
        registry = os.path.join(work, "registry.reg")
        with open(registry, "w") as out:
            out.write("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\Software\\Norvane\\Telmora\\QueueServer]\n")
            out.write('"PickupMailDir"="%s"\n"SentMailDir"="%s"\n"FailedMailDir"="%s"\n"LogDir"="%s"\n'
                      % tuple(self.folders[name] for name in ("pickup", "sent", "failed", "log")))
        self.env = dict(os.environ, TELMORAQ_REGISTRY=registry,
                        TELMORAQ_EVENTLOG=os.path.join(work, "events.log"),
                        TELMORAQ_DEBUG_DIR=os.path.join(work, "debug"))
        self.process = None

    def submit(self, name, port, message_file):
        subprocess.run([os.path.join(self.build, "tools", "submit", "telmoraq-submit"),
                        "--pickup", self.folders["pickup"], "--name", name, "--host", "127.0.0.1",
                        "--port", str(port), "--message", message_file],
                       check=True, stdout=subprocess.DEVNULL, env=self.env)

    def start(self):
        self.process = subprocess.Popen([os.path.join(self.build, "telmoraq"), "/NvDebug"],
                                        env=self.env, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)

    def stop(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()

    def progress(self):
        """(files left in the pickup folder, result lines, archived copies)."""
        left = len(glob.glob(os.path.join(self.folders["pickup"], "*.nvq")))
        logs = glob.glob(os.path.join(self.folders["log"], "*.LOG"))
        lines = sum(1 for log in logs for _ in open(log, "rb")) - len(logs)  # head rows
        archived = len(os.listdir(self.folders["sent"])) + len(os.listdir(self.folders["failed"]))
        return left, lines, archived

    def status(self):
        """{'VmRSS': kB, 'VmHWM': kB, 'fds': n} of the running service."""
        figures = {}
        with open("/proc/%d/status" % self.process.pid) as status:
            for line in status:
                key, _, value = line.partition(":")
                if key in ("VmRSS", "VmHWM"):
                    figures[key] = int(value.split()[0])
        figures["fds"] = len(os.listdir("/proc/%d/fd" % self.process.pid))
        return figures
