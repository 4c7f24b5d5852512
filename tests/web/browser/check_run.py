#!/usr/bin/env python3
"""Looks at the status page of a running daemon through a real browser.

usage: check_run.py BIN    the folder of kvhost and the driver

Needs chromium. The daemon delivers jobs to mail servers, of which one refuses some recipients and one is busy, while
the browser looks. The figures in the browser must move and end as those of the store.
"""
import html
import pathlib
import socket
import sys
import tempfile
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "scale"))

from browser import figure, page_after, tell  # noqa: E402
from kvhost_program import Kvhost, wait_until  # noqa: E402
from smtp_peers import REFUSED_PREFIX, Behaviour, SmtpPeers  # noqa: E402

HOSTILE = "</td><script>document.title='broken'</script> \"quoted\" & 'so' &amp; \u20ac"
REFUSED = 5     # jobs
BATCH = 50      # jobs that are submitted together
BATCHES = 100   # at most


def configuration(peers, port):
    text = f"[http]\nport = {port}\n"
    for name, peer in peers.peers.items():
        text += (f'[carrier.{name}]\nserver = "127.0.0.1"\nport = {peer.port}\nsecurity = "clear"\n'
                 'sender = "host@example.org"\n')
    return text


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def jobs(prefix, count, carrier, recipient="ops", subject="Pump 11: pressure is low"):
    return [{"id": f"{prefix}-{number}", "carrier": carrier, "subject": subject, "text": "Look after it.\n",
             "recipient": f"{recipient}{number}@example.org"} for number in range(count)]


class Stream(threading.Thread):
    """Submits jobs, one batch after the other, until it is told to end."""

    def __init__(self, host):
        super().__init__()
        self.host = host
        self.ended = threading.Event()
        self.submitted = 0
        self.failure = None

    def run(self):
        try:
            while self.submitted < BATCH * BATCHES and not self.ended.is_set():
                name = f"stream-{self.submitted}"
                self.host.submit(jobs(name, BATCH, "healthy"), name + ".jsonl")
                self.submitted += BATCH
                self.ended.wait(0.1)
        except RuntimeError as error:
            self.failure = error


def look(url, host):
    """Answers what is wrong, one sentence each."""
    stream = Stream(host)
    stream.start()
    try:
        wait_until(lambda: host.counts().get("delivered", 0) > 0, 30, "a job is delivered", host.check_alive)
        first = page_after(url, 500)
        second = page_after(url, 7000)
    finally:
        stream.ended.set()
        stream.join()
    wait_until(lambda: host.counts().get("delivered", 0) == stream.submitted, 60, "all are delivered", host.check_alive)
    wait_until(lambda: host.counts().get("failed", 0) == REFUSED, 30, "the refused ones have failed", host.check_alive)
    last = page_after(url, 5000)
    expectations = {
        "the jobs were submitted": stream.failure is None,
        "the figures move": 0 < figure(first, "delivered") < figure(second, "delivered"),
        "the last figures are those of the store": (figure(last, "delivered"), figure(last, "failed"))
                                                   == (stream.submitted, REFUSED),
        "a failure's reason is shown": "5.1.1 No such recipient" in last,
        "hostile text in a subject stays text": html.escape(HOSTILE, quote=False) in last,
        "hostile text runs no script": "<title>kvhost</title>" in last,
        "the last hour has a bar": '<rect class="delivered"' in last,
    }
    return [what for what, holds in expectations.items() if not holds]


def main():
    with tempfile.TemporaryDirectory() as folder:
        peers = SmtpPeers({"healthy": Behaviour(), "picky": Behaviour(refuses_nobody=True),
                           "busy": Behaviour(busy=(0, 3600))})
        port = free_port()
        with peers, Kvhost(sys.argv[1], folder) as host:
            host.configure(configuration(peers, port))
            host.submit(jobs("refused", REFUSED, "picky", REFUSED_PREFIX), "refused.jsonl")
            host.submit(jobs("hostile", 1, "busy", subject=HOSTILE), "hostile.jsonl")
            host.start()
            wrong = look(f"http://127.0.0.1:{port}/", host)
            host.stop()
    return tell("the status page of a running daemon in a browser", wrong)


if __name__ == "__main__":
    sys.exit(main())
