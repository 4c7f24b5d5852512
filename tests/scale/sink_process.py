"""kvsink as a process that is killed and started again on its port, and the journal that it leaves."""

import signal
import subprocess
import time

# A sink answers within the same turn of its loop in which it notes a mail. What it noted this long before it was killed
# may lack its answer; everything older was answered.
SECONDS_IN_DOUBT = 2.0


class Sink:
    """One mail server; a context manager."""

    def __init__(self, binaries, folder, name, options=()):
        self.program = binaries / "kvsink"
        self.name = name
        self.journal = folder / f"{name}.journal"
        self.options = list(options)
        self.port = 0
        self.process = None
        self.ends = []        # wall clock, from and until, of each end

    def start(self):
        self.process = subprocess.Popen(
            [self.program, "--listen", f"127.0.0.1:{self.port}", "--count-only", "--quiet", "--journal", self.journal,
             *self.options], stdout=subprocess.PIPE, text=True)
        first = self.process.stdout.readline()
        if not first.startswith("kvsink listening on"):
            raise RuntimeError(f"the mail server {self.name} did not start")
        self.port = int(first.rsplit(":", 1)[1])

    def end(self, how=signal.SIGKILL):
        begin = time.time()
        self.process.send_signal(how)
        self.process.communicate(timeout=60)
        self.ends.append((begin - SECONDS_IN_DOUBT, time.time()))

    def is_in_doubt(self, at):
        return any(begin <= at <= end for begin, end in self.ends)

    def arrivals(self):
        """Of every mail: when, how it came ("ESMTPSA"), the sender, the recipients."""
        if not self.journal.exists():
            return
        with self.journal.open(encoding="ascii") as lines:
            for line in lines:
                at, protocol, sender, *recipients = line.rstrip("\n").split("\t")
                yield int(at) / 1000, protocol, sender, recipients

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.end()


def make_certificates(binaries, folder):
    """A certificate for 127.0.0.1 and the authority that vouches for it: a folder with ca.pem, cert.pem and key.pem."""
    folder.mkdir()
    process = subprocess.Popen([binaries / "kvsink", "--count-only", "--quiet", "--self-signed", folder],
                               stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    process.send_signal(signal.SIGTERM)
    process.communicate(timeout=60)
    return folder
