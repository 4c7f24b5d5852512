"""What the soak works with: honest and faulty servers, the configuration, and the jobs."""

import random
import socket
import ssl

from faulty_peers import FaultRecord, FaultyPeer, Wildness
from sink_process import Sink, make_certificates
from smtp_peers import SmtpPeers

SEED = 20261122
CONNECTIONS = 3           # of each carrier
SINKS = 8                 # the last two want TLS and AUTH
TOKEN = "token-of-the-soak-0123456789"
PASSWORDS = ("first-password", "second-password")   # of the sinks with AUTH: each reload takes the other one
BODIES = ("Pump %d: pressure is low.\n", "Line one of %d\n.\nbehind a lone dot\n", "Über %d: Druck zu niedrig\n")


def wild_servers(tls, foreign):
    """Each way to connect that the driver has, by carrier: its security, and the server."""
    return {
        "wild-clear": ("clear", Wildness()),
        "wild-plain": ("clear", Wildness(mechanisms="PLAIN LOGIN")),
        "wild-login": ("clear", Wildness(mechanisms="LOGIN")),
        "wild-tls": ("required", Wildness(mechanisms="PLAIN", tls=tls, foreign_tls=foreign)),
        "wild-maybe": ("if-available", Wildness(mechanisms="PLAIN LOGIN", tls=tls, foreign_tls=foreign)),
        "wild-demand": ("on-demand", Wildness(mechanisms="LOGIN", tls=tls, foreign_tls=foreign, demands_tls=True)),
        "wild-mails": ("clear", Wildness(connecting=0.0, mailing=0.05)),
        "wild-calls": ("clear", Wildness(connecting=0.1, mailing=0.0, mechanisms="PLAIN")),
    }


def server_context(folder):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(folder / "cert.pem", folder / "key.pem")
    return context


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Setting:
    """Servers and configuration."""

    def __init__(self, stack, binaries, folder):
        certificates = make_certificates(binaries, folder / "tls")
        foreign = make_certificates(binaries, folder / "foreign")
        self.ca_file = certificates / "ca.pem"
        self.sinks = [stack.enter_context(Sink(binaries, folder, f"sink-{number}", self.sink_options(number, certificates)))
                      for number in range(1, SINKS + 1)]
        self.wild = wild_servers(server_context(certificates), server_context(foreign))
        self.record = FaultRecord()
        self.peers = stack.enter_context(SmtpPeers({name: wildness for name, (_, wildness) in self.wild.items()},
                                                   self.record, FaultyPeer))
        self.http_port = free_port()
        (folder / "token").write_text(TOKEN + "\n", encoding="ascii")

    def connections(self):
        return CONNECTIONS * (len(self.sinks) + len(self.wild))

    @staticmethod
    def wants_login(number):
        return number > SINKS - 2

    def sink_options(self, number, certificates):
        if not self.wants_login(number):
            return []
        accounts = [option for password in PASSWORDS for option in ("--user", "host", "--password", password)]
        return ["--cert", certificates / "cert.pem", "--key", certificates / "key.pem", "--require-tls", "--require-auth",
                *accounts]

    def configuration(self, edition):
        """Each edition has another password for the sinks, another slice and other waits."""
        text = f"""
[driver]
threadpool_size = 16
diff_carrier_connection_count = 80
same_carrier_connection_count = {CONNECTIONS}
[run]
tick = "50ms"
probe_limit = "2s"
stop_limit = "20s"
keep = "0s"
slice = {(200, 100)[edition % 2]}
max_under_way = 3000
[http]
port = {self.http_port}
submit = true
token_file = "token"
[retry]
first = "{(300, 500)[edition % 2]}ms"
factor = 1.5
longest = "5s"
lifetime = "0s"
unclear_attempts = 0
"""
        for number, sink in enumerate(self.sinks, 1):
            text += carrier(sink.name, sink.port, "required" if self.wants_login(number) else "clear", self.ca_file,
                            PASSWORDS[edition % 2] if self.wants_login(number) else "")
        for name, (security, wildness) in self.wild.items():
            text += carrier(name, self.peers.port(name), security, self.ca_file,
                            "pw-of-the-wild" if wildness.mechanisms else "")
        return text


def carrier(name, port, security, ca_file, password):
    text = f'[carrier.{name}]\nserver = "127.0.0.1"\nport = {port}\nsecurity = "{security}"\nsender = "{name}@example.org"\n'
    if security != "clear":
        text += f'ca_file = "{ca_file}"\n'
    if password:
        text += f'user = "host"\npassword = "{password}"\n'
    return text


class Jobs:
    """Jobs by number: which carrier each has, and what is submitted. The recipient names the job in the servers' records."""

    def __init__(self, setting, wild_share):
        self.choice = random.Random(SEED)
        self.wild_share = wild_share
        self.calm = [sink.name for sink in setting.sinks]
        self.wild = list(setting.wild)
        self.carriers = []

    def make(self, count):
        return [self.one(len(self.carriers) + 1) for _ in range(count)]

    def one(self, number):
        name = self.choice.choice(self.wild if self.choice.random() < self.wild_share else self.calm)
        self.carriers.append(name)
        job = {"id": f"soak-{number}", "carrier": name, "subject": f"soak-{number}",
               "recipient": f"ops{number}@example.org",
               "text": self.choice.choice(BODIES) % number + "x" * self.choice.randrange(0, 500)}
        kind = self.choice.random()
        if kind < 0.02:
            job["urgent"] = True
        elif kind < 0.03:
            job["not_before"] = f"{self.choice.randrange(1, 5)}s"
        elif kind < 0.035:
            job["attachments"] = [{"name": "plan.txt", "content_base64": "cGxhbnBsYW5z" * self.choice.randrange(1, 50)}]
        return job
