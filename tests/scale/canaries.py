#!/usr/bin/env python3
"""Canary credentials: ten thousand jobs over all outcomes, through servers of which most repeat in every reply what the
client told them, in every form. Afterwards nothing that kvhost wrote may have a secret in it: its log at the level of
trace, standard output and standard error of daemon and commands, the store with its write-ahead log, what a kill leaves
behind, the delivery log, pages, metrics and answers over HTTP, and what it tells the service manager.

    canaries.py --bin build/release/bin [--jobs 10000] [--limit 900] [--keep FOLDER]

Exit status 0 when no secret is found and every outcome has come about, 1 otherwise.
"""

import argparse
import contextlib
import json
import os
import pathlib
import shutil
import signal
import socket
import sys
import tempfile
import threading
import time
import urllib.error
import urllib.request

from echoing_peers import EchoPeer, Habits
from kvhost_program import STATES, Kvhost, wait_until
from secret_forms import CORE, FORMS, Search
from sink_process import make_certificates
from smtp_peers import SmtpPeers

TOKEN = f"token:{CORE}:of-submitters"
DOUBTFUL_SILENCE = 1.0
PATIENCE = "patience"     # stands for the seconds of --patience: a carrier in trouble gets one job at a time

# What the jobs of a carrier meet: their part of all jobs, the server, fields of the carrier and of each job.
CARRIERS = {
    "calm-plain": (0.10, Habits("PLAIN", echoes=False), {}, {}),
    "calm-login": (0.10, Habits("LOGIN", echoes=False), {}, {}),
    "echo-plain": (0.15, Habits("PLAIN"), {}, {}),
    "echo-login": (0.15, Habits("LOGIN"), {}, {}),
    "no-recipient": (0.08, Habits("PLAIN", rcpt="550 5.1.1 No,"), {}, {}),
    "no-sender": (0.05, Habits("LOGIN", mail="554-5.7.1 Not\r\n554 5.7.1 you,"), {}, {}),
    "no-content": (0.05, Habits("PLAIN", end="552 Refused"), {}, {}),
    "busy": (0.05, Habits("LOGIN", busy_first=True), {}, {}),
    "locked-plain": (0.03, Habits("PLAIN", login="535 5.7.8 Not with"), {}, {"deadline": PATIENCE}),
    "locked-login": (0.03, Habits("LOGIN", login="535 5.7.8 Not with"), {}, {"deadline": PATIENCE}),
    "breaks-data": (0.02, Habits("PLAIN", closes_at="DATA"), {}, {"deadline": PATIENCE}),
    "breaks-end": (0.02, Habits("PLAIN", closes_at="end"), {}, {"deadline": PATIENCE}),
    "long": (0.03, Habits("PLAIN"), {}, {}),
    "no-tls": (0.02, Habits("PLAIN"), {"security": '"required"'}, {"deadline": PATIENCE}),
    "away": (0.02, None, {}, {"deadline": PATIENCE}),
    "expired": (0.02, None, {}, {"deadline": "1s"}),
    "doubt": (0.02, Habits("PLAIN", silent_at_end=DOUBTFUL_SILENCE), {"on_doubt": '"hold"'}, {}),
    "cancelled": (0.03, Habits("PLAIN"), {}, {"not_before": "2h"}),
    "held": (0.03, Habits("PLAIN"), {}, {"not_before": "2h"}),
}

# Configurations that are refused: the message may name the field, never what stands in it.
FAULTY = {
    "delimiter": f'user = "u"\npassword = "x}}-{{{CORE}"\n',
    "two": f'user = "u"\npassword = "{CORE}"\npassword_file = "token"\n',
    "alone": f'password = "{CORE}"\n',
    "misspelt": f'user = "u"\npasword = "{CORE}"\n',
    "list": f'user = "u"\npassword = ["{CORE}"]\n',
    "open": f'user = "u"\npassword = "{CORE}\n',
    "control": f'user = "u"\npassword = "{CORE}\\u0001"\n',
    "bare": f'user = "u"\npassword = {CORE}\n',
    "twice": f'user = "u"\npassword = "{CORE}"\npassword = "{CORE}"\n',
    "not a file": f'user = "u"\npassword_file = "missing"\npassword = "{CORE}"\n',
}


def password(name, edition):
    """At another distance from the beginning for each carrier; the one of "long" is base64 of several lines."""
    number = list(CARRIERS).index(name)
    if name == "long":
        return "l" * 50 + CORE + "é" + str(edition)
    return "abcdef"[:number % 6] + CORE + f"-{edition}{name[:4]}"


class Folder:
    """Everything that is written, and by whom."""

    OURS = ("kvhost.toml", "token", "jobs.jsonl", "faulty.toml", "send.jsonl")

    def __init__(self, path):
        self.path = path
        self.seen = path / "seen"
        self.seen.mkdir()

    def keep(self, name, *texts):
        """Keeps what a command or a page told, to be searched in the end."""
        with (self.seen / name.replace("/", "_")).open("ab") as stream:
            for text in texts:
                stream.write(text if isinstance(text, bytes) else text.encode("utf-8", "replace"))

    def written(self):
        for path in sorted(self.path.rglob("*")):
            ours = path.name in self.OURS or path.suffix == ".secret"
            if path.is_file() and not ours:
                yield path


class ServiceManager:
    """The socket to which a service tells how it fares; what comes is kept."""

    def __init__(self, folder):
        self.folder = folder
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(str(folder.path / "notify"))
        os.environ["NOTIFY_SOCKET"] = str(folder.path / "notify")
        threading.Thread(target=self.listen, daemon=True).start()

    def listen(self):
        with contextlib.suppress(OSError):
            while True:
                self.folder.keep("notify", self.socket.recv(65536) + b"\n")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        del os.environ["NOTIFY_SOCKET"]
        self.socket.close()


class Canaries:
    """The run itself."""

    def __init__(self, host, peers, folder, arguments):
        self.host = host
        self.peers = peers
        self.folder = folder
        self.arguments = arguments
        self.refusing = socket.socket()   # bound and never listened to: connections are refused
        self.refusing.bind(("127.0.0.1", 0))
        with socket.socket() as probe:
            probe.bind(("127.0.0.1", 0))
            self.http_port = probe.getsockname()[1]
        (folder.path / "token").write_text(TOKEN + "\n", encoding="utf-8")
        self.certificates = make_certificates(arguments.bin, folder.path / "tls")
        self.jobs = self.make_jobs()

    def make_jobs(self):
        jobs = []
        for name, (share, _, _, fields) in CARRIERS.items():
            for number in range(max(6, round(share * self.arguments.jobs))):
                jobs.append({"id": f"{name}-{number}", "carrier": name, "recipient": f"{name}{number}@example.org",
                             "subject": "Boiler", "text": "The boiler is cold.",
                             **{field: f"{self.arguments.patience}s" if value is PATIENCE else value
                                for field, value in fields.items()}})
        return jobs

    def configure(self, edition):
        text = f"""
[driver]
threadpool_size = 12
diff_carrier_connection_count = 60
same_carrier_connection_count = 2
[run]
tick = "20ms"
probe_limit = "1s"
stop_limit = "10s"
keep = "0s"
[delivery_log]
file = "deliveries.jsonl"
[http]
port = {self.http_port}
submit = true
token_file = "token"
[retry]
first = "20ms"
factor = 1.2
longest = "100ms"
attempts = 3
unclear_attempts = 2
"""
        for name, (_, habits, fields, _) in CARRIERS.items():
            port = self.peers.port(name) if habits else self.refusing.getsockname()[1]
            every = {"server": '"127.0.0.1"', "port": port, "security": '"clear"', "sender": '"host@example.org"',
                     "user": f'"{name}"', **self.secret_of(name, edition), **fields}
            if every["security"] != '"clear"':
                every["ca_file"] = f'"{self.certificates / "ca.pem"}"'
            text += f"[carrier.{name}]\n" + "".join(f"{field} = {value}\n" for field, value in every.items())
        self.host.configure(text, level="trace")

    def secret_of(self, name, edition):
        """In the configuration, in the environment, or in a file."""
        secret = password(name, edition)
        if name == "echo-plain":
            return {"password": json.dumps(secret, ensure_ascii=False)}
        if name == "echo-login":
            os.environ["KVHOST_CANARY"] = secret
            return {"password_env": '"KVHOST_CANARY"'}
        (self.folder.path / f"{name}.secret").write_text(secret + "\n", encoding="utf-8")
        return {"password_file": f'"{name}.secret"'}

    # What is told

    def command(self, *arguments, **options):
        status, output, error = self.host.command(*arguments, **options)
        self.folder.keep("command " + " ".join(arguments[:2]), output, error)
        return status, output

    def page(self, path, method="GET", token=TOKEN, body=None):
        request = urllib.request.Request(f"http://127.0.0.1:{self.http_port}{path}", method=method,
                                         data=None if body is None else json.dumps(body).encode(),
                                         headers={"Authorization": "Bearer " + token, "Content-Type": "application/json"})
        try:
            with urllib.request.urlopen(request, timeout=60) as answer:
                content = str(answer.headers).encode() + answer.read()
        except urllib.error.HTTPError as error:
            content = str(error.headers).encode() + error.read()
        self.folder.keep("page " + (path if path.count("/") < 2 else path[:8]), content)
        return content

    def look(self):
        for path in ("/", "/status.json", "/metrics", "/healthz", "/readyz"):
            self.page(path)

    # What happens

    def run(self):
        self.try_faulty_configurations()
        self.configure(1)
        self.host.start()
        wait_until(self.is_ready, 30, "the host is ready", self.host.check_alive)
        half = len(self.jobs) // 2
        shuffled = sorted(self.jobs, key=lambda job: hash_of(job["id"]))
        self.host.submit(shuffled[:half], "jobs.jsonl")
        self.page("/v1/jobs", "POST", body=[{"carrier": "nobody", "recipient": "x", "text": ""}])
        self.page("/v1/jobs", "POST", token="wrong-" + TOKEN, body=[])
        self.change_secrets(half)
        for first in range(half, len(shuffled), 500):
            self.page("/v1/jobs", "POST", body=shuffled[first:first + 500])
            self.look()
        self.crash()
        self.operate()
        wait_until(self.is_over, self.arguments.limit, "every job has come to rest", self.host.check_alive, 0.5)
        self.tell_everything()
        self.host.stop()
        self.tell_everything(runs=False)

    def try_faulty_configurations(self):
        for lines in FAULTY.values():
            faulty = self.folder.path / "faulty.toml"
            faulty.write_text('store = "unused"\n[carrier.x]\nserver = "127.0.0.1"\nsecurity = "clear"\n'
                              'sender = "a@example.org"\n' + lines, encoding="utf-8")
            for command in (("config", "check"), ("config", "check", "--json"), ("carrier", "test", "x")):
                _, output, error = self.host.spawn(*command, "--config", faulty, timeout=60)
                self.folder.keep("faulty configuration", output, error)

    def is_ready(self):
        try:
            return b"ok" in self.page("/readyz")
        except OSError:
            return False

    def change_secrets(self, half):
        """Another password for every carrier while their jobs are under way."""
        wait_until(lambda: self.ended() > half // 4, self.arguments.limit, "a part of the jobs", self.host.check_alive)
        self.look()
        self.configure(2)
        self.host.daemon.send_signal(signal.SIGHUP)

    def crash(self):
        """SIGKILL while jobs are with the driver. What it leaves behind is kept as it is."""
        wait_until(lambda: self.handed_over("doubt") > 1, self.arguments.limit, "jobs under way", self.host.check_alive, 0.02)
        self.host.kill()
        shutil.copytree(self.host.store, self.folder.path / "left-by-the-kill", ignore=shutil.ignore_patterns("doorbell"))
        for peer in self.peers.peers.values():
            peer.known = ()  # the passwords before the change are no secrets of the next process
        self.host.start()
        wait_until(self.is_ready, 30, "the host is ready again", self.host.check_alive)

    def operate(self):
        self.command("hold", "--all", "--state", "queued", "--carrier", "held")
        self.command("cancel", "--all", "--state", "queued", "--carrier", "cancelled")

    def handed_over(self, carrier):
        return self.host.rows(f"SELECT count(*) FROM job WHERE carrier = '{carrier}' AND state = 1")[0][0]

    def ended(self):
        return sum(count for state, count in self.host.counts().items() if state not in ("queued", "handed over"))

    def is_over(self):
        self.look()
        return self.ended() == len(self.jobs)

    def tell_everything(self, runs=True):
        """Every command that tells something, and every page; of a small run each command in one of its forms at least."""
        is_small = len(self.jobs) < 1000
        for form in ([], ["--json"]):
            for command in ("list", "stats", "fsck"):
                self.command(command, *form)
            for state in STATES[len(form)::2] if is_small else STATES:
                self.command("list", "--state", state.replace(" ", "-"), "--limit", "1000", *form)
            self.command("top", "--once", *form)
            self.command("config", "check", *form)
            for number, name in enumerate(CARRIERS):
                if is_small and (not runs or number % 2 == len(form)):
                    continue
                if runs:
                    self.command("carrier", "test", name, *form)
                for job in range(1 if is_small else 3):
                    self.command("show", "--text", f"{name}-{job}", *form)
                    self.command("show", f"{name}-{job}", *form)
        if runs:
            self.look()
            for job in self.jobs[::max(1, len(self.jobs) // (20 if is_small else 500))]:
                self.page("/v1/jobs/" + job["id"])
                self.page("/v1/jobs/" + job["id"], token="wrong-" + TOKEN)
        else:
            self.send_at_once()

    def send_at_once(self):
        """The other way to send: without a store."""
        jobs = self.folder.path / "send.jsonl"
        with jobs.open("w", encoding="utf-8") as stream:
            for name, (_, habits, _, _) in CARRIERS.items():
                if habits and not habits.silent_at_end:
                    for number in range(3):
                        stream.write(json.dumps({"id": f"{name}-{number}", "carrier": name, "text": "Cold.",
                                                 "recipient": f"{name}{number}@example.org"}) + "\n")
        report = str(self.folder.path / "send-report.json")
        for options in (["--json"], ["--log-level", "trace"], ["--log-level", "off", "--json-file", report]):
            self.command("send", *options, str(jobs))


def hash_of(text):
    """The same order in every run."""
    return sum((index + 1) * ord(letter) * 2654435761 for index, letter in enumerate(text)) % 1000003


def faults_of(canaries, search_of, peers, folder):
    """What is wrong: secrets that were found, and whatever would make finding none a matter of course."""
    faults = [str(hit) for hit in search_of.hits]
    faults += [f"a planted secret {form} is not found" for form in search_of.misses(password("echo-login", 1))]
    counts = canaries.host.counts()
    for state in ("delivered", "failed", "in doubt", "held", "cancelled"):
        if not counts.get(state):
            faults.append(f"no job is {state}")
    log = (folder.path / "kvhost.log").read_text(encoding="utf-8", errors="replace")
    for text in ("AUTH PLAIN", "AUTH LOGIN", "[masked]", "<= ", "=> 535 5.7.8 Not with [masked]"):
        if text not in log:
            faults.append(f"the log has no {text}: it shows no exchange")
    [(masked,)] = canaries.host.rows("SELECT count(*) FROM attempt WHERE reason LIKE '%[masked]%'")
    if not masked:
        faults.append("no server repeated a secret in a reason")
    for name, peer in peers.peers.items():
        wanted = {password(name, edition) for edition in (1, 2)}
        if name not in ("no-tls", "cancelled", "held") and not peer.heard & wanted:
            faults.append(f"the server of {name} never heard the password: {peer.heard}")
    return faults, counts, masked


def run(arguments, path):
    folder = Folder(path)
    behaviours = {name: habits for name, (_, habits, _, _) in CARRIERS.items() if habits}
    with SmtpPeers(behaviours, peer=EchoPeer) as peers, ServiceManager(folder), Kvhost(arguments.bin, path) as host:
        canaries = Canaries(host, peers, folder, arguments)
        begin = time.monotonic()
        try:
            canaries.run()
        except RuntimeError as error:
            print(f"FAULT: {error}\nstates: {host.counts()}\n{host.said()}")
            return 1
        took = time.monotonic() - begin
        search_of = Search(folder)
        search_of.everything()
        faults, counts, masked = faults_of(canaries, search_of, peers, folder)
        echoed = sum(peer.echoed for peer in peers.peers.values())
    print(f"{len(canaries.jobs)} jobs in {took:.0f} s: " + ", ".join(f"{count} {state}" for state, count in sorted(counts.items())))
    print(f"the servers repeated credentials in {echoed} replies; {masked} attempts have such a reason, masked")
    print(f"{search_of.files} files of {search_of.bytes / 1e6:.1f} MB searched for {len(FORMS)} forms of {2 * len(CARRIERS)} "
          f"passwords and a token; each form is found where it is planted")
    for fault in faults[:60]:
        print("FAULT: " + fault)
    print(f"{len(faults)} faults")
    return 1 if faults else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--bin", required=True, type=pathlib.Path, help="folder of kvhost, kvsink and the driver")
    parser.add_argument("--jobs", type=int, default=10000)
    parser.add_argument("--patience", type=int, default=30, help="seconds that jobs of carriers without a way have")
    parser.add_argument("--limit", type=float, default=900, help="seconds after which unfinished jobs are a fault")
    parser.add_argument("--keep", help="folder for everything that is written, which is then left there")
    arguments = parser.parse_args()
    arguments.bin = arguments.bin.resolve()
    if arguments.keep:
        shutil.rmtree(arguments.keep, ignore_errors=True)
        os.makedirs(arguments.keep)
        return run(arguments, pathlib.Path(arguments.keep).resolve())
    with tempfile.TemporaryDirectory(prefix="kvhost-canaries-") as folder:
        return run(arguments, pathlib.Path(folder).resolve())


if __name__ == "__main__":
    sys.exit(main())
