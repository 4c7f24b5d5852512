"""kvhost as its operator has it: the daemon, the commands, and a look into the store."""

import json
import pathlib
import signal
import sqlite3
import subprocess
import time

STATES = ("queued", "handed over", "delivered", "failed", "in doubt", "held", "cancelled")
FINAL = ("delivered", "failed", "cancelled")


class Kvhost:
    """One configuration in a folder of its own, and the programs that use it; a context manager that kills the daemon
    when it is still there at the end."""

    def __init__(self, binaries, folder):
        self.binaries = pathlib.Path(binaries).resolve()
        self.folder = pathlib.Path(folder).resolve()
        self.config = self.folder / "kvhost.toml"
        self.store = self.folder / "store"
        self.daemon = None

    def configure(self, text, level="warning"):
        head = f'store = "{self.store}"\n'
        log = f'[log]\nlevel = "{level}"\nfile = "{self.folder / "kvhost.log"}"\n'
        self.config.write_text(head + log + text, encoding="utf-8")

    def command(self, *arguments, timeout=600):
        """Runs a command to its end; answers exit status, standard output and standard error."""
        return self.spawn(*arguments, "--config", self.config, timeout=timeout)

    def spawn(self, *arguments, timeout=600):
        """The same with a configuration that the arguments name."""
        done = subprocess.run([self.binaries / "kvhost", *arguments], capture_output=True, text=True, timeout=timeout,
                              check=False)
        return done.returncode, done.stdout, done.stderr

    def submit(self, lines, name):
        """Submits the objects in one call; raises unless every one is stored. Answers the seconds that it took."""
        path = self.folder / name
        with path.open("w", encoding="utf-8") as stream:
            for line in lines:
                stream.write(json.dumps(line) + "\n")
        begin = time.monotonic()
        status, output, error = self.command("submit", "--jsonl", str(path), "--json", timeout=3600)
        took = time.monotonic() - begin
        answers = [json.loads(line)["status"] for line in output.splitlines()]
        if status != 0 or any(answer != "stored" for answer in answers) or len(answers) != len(lines):
            raise RuntimeError(f"submit ended with {status}: {error or output}"[:2000])
        return took

    def start(self):
        with (self.folder / "run.out").open("ab") as output, (self.folder / "run.err").open("ab") as errors:
            self.daemon = subprocess.Popen([self.binaries / "kvhost", "run", "--config", self.config],
                                           stdout=output, stderr=errors)

    def check_alive(self):
        if self.daemon.poll() is not None:
            raise RuntimeError(f"kvhost run ended with {self.daemon.returncode}: {self.said()}")

    def said(self):
        texts = [path.read_text(errors="replace")[-1500:] for path in (self.folder / "run.err", self.folder / "kvhost.log")
                 if path.exists()]
        return "\n".join(texts)

    def kill(self):
        self.daemon.send_signal(signal.SIGKILL)
        self.daemon.wait(60)

    def stop(self):
        """Ends the daemon as systemd does; answers the seconds that it took, raises unless it ended well."""
        begin = time.monotonic()
        self.daemon.send_signal(signal.SIGTERM)
        status = self.daemon.wait(180)
        if status != 0:
            raise RuntimeError(f"kvhost run ended with {status}: {self.said()}")
        return time.monotonic() - begin

    def resident_mib(self, field="VmHWM"):
        """What the daemon has, or had at most, in memory."""
        for line in pathlib.Path(f"/proc/{self.daemon.pid}/status").read_text(encoding="ascii").splitlines():
            if line.startswith(field + ":"):
                return int(line.split()[1]) / 1024
        return 0.0

    def rows(self, query):
        """Reads the store beside the running host."""
        connection = sqlite3.connect(f"file:{self.store / 'jobs.db'}?mode=ro", uri=True, timeout=60)
        try:
            return connection.execute(query).fetchall()
        finally:
            connection.close()

    def counts(self):
        """Number of jobs by the name of their state."""
        return {STATES[state]: jobs for state, jobs in
                self.rows("SELECT state, sum(jobs) FROM tally WHERE jobs > 0 GROUP BY state")}

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.daemon is not None and self.daemon.poll() is None:
            self.kill()


def wait_until(condition, seconds, what, alive=lambda: None, step=0.05):
    """Waits for a condition; raises when it does not come."""
    end = time.monotonic() + seconds
    while not condition():
        alive()
        if time.monotonic() > end:
            raise RuntimeError(f"not within {seconds} s: {what}")
        time.sleep(step)


def percentile(values, share):
    """The value below which that share of the values lies; 0 when there are none."""
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))] if ordered else 0.0
