"""Mail servers that lie, hang, cut and crawl: every reply may be a fault, drawn by chance. What they took, and what the
client could know of it, is recorded exactly.

A refusal carries a mark of its own ("fault-17"), so that a job's reason tells which one it was. A server that cut a
reply in two, or sent more than a client reads at once, leaves the conversation out of step: from then on it makes no
further faults on that connection, and what it takes there counts as answered in a way that nobody knows.
"""

import asyncio
import collections
import dataclasses
import random
import socket
import ssl
import struct

from smtp_peers import Peer, Session

YES, NO, PERHAPS = "yes", "no", "perhaps"   # whether the client was told that its mail is taken

LONGER_THAN_A_READ = 1500        # bytes of a reply of which the driver reads 1000 at once
VERBS = ("EHLO", "HELO", "RSET", "MAIL", "RCPT", "DATA", "NOOP")
OUT_OF_STEP_RESETS = 12          # after which such a connection is ended with 421

# What a step may be answered with instead of the usual reply.
REFUSALS = {
    "4yz": ("451 4.3.0 Not now, fault-%d\r\n", False),
    "5yz": ("554 5.3.0 Never, fault-%d\r\n", True),
    "4yz in words": ("450 Mailbox busy, try again, fault-%d\r\n", False),
    "5yz in words": ("550 No such user, fault-%d\r\n", True),
    "5yz of several lines": ("550-5.1.1 There is\r\n550-5.1.1 no way\r\n550 5.1.1 at all, fault-%d\r\n", True),
    "421": ("421 4.3.2 Closing, fault-%d\r\n", False),
    "535": ("535 5.7.8 Authentication failed, fault-%d\r\n", True),  # a job's end where the driver logs in within its mail
}
OF_A_MAIL = tuple(kind for kind in REFUSALS if kind != "535")
ENDS = ("close", "reset", "half a reply")
TWISTS = ("late", "garbage", "two replies at once")
STRAYS = ("cut in two", "longer than a read")
FAULTS = {
    "greeting": ("4yz", "5yz", "421") + ENDS + ("late", "two replies at once"),
    "EHLO": ("4yz", "5yz", "421", "STARTTLS withdrawn", "late", "cut in two", "garbage") + ENDS,
    "STARTTLS": ("4yz", "5yz", "421", "close", "reset", "close after 220", "reset after 220", "no TLS after 220",
                 "another authority"),
    "AUTH": ("4yz", "5yz", "421", "late", "garbage", "half a reply", "close"),
    "credentials": ("535", "4yz", "421", "late", "garbage") + ENDS,
    "RSET": ("4yz", "5yz", "421", "late", "garbage", "two replies at once", "cut in two") + ENDS,
    "MAIL": OF_A_MAIL + ENDS + TWISTS + STRAYS,
    "RCPT": OF_A_MAIL + ENDS + TWISTS + STRAYS,
    "DATA": OF_A_MAIL + ENDS + TWISTS + STRAYS,
    "content": ("close", "reset", "late"),
    "end": OF_A_MAIL + ENDS + TWISTS + STRAYS + ("close after taking", "reset after taking"),
}
CONNECTING = ("greeting", "EHLO", "STARTTLS", "AUTH", "credentials")


@dataclasses.dataclass
class Wildness:
    """How a server behaves."""

    connecting: float = 0.05       # share of the replies before the first mail that are faults
    mailing: float = 0.04          # and of the others
    late_connecting: float = 0.2   # seconds at most: the driver connects on the thread that hands everything over
    late_mailing: float = 3.0
    mechanisms: str = ""           # of AUTH; none is offered when empty
    tls: ssl.SSLContext = None     # STARTTLS is offered with this one
    foreign_tls: ssl.SSLContext = None   # of an authority that the client does not trust
    demands_tls: bool = False      # 530 for MAIL before STARTTLS


@dataclasses.dataclass
class Arrival:
    """A mail that was taken."""

    carrier: str
    job: str       # from the subject
    answer: str    # whether the client was told


class FaultRecord:
    """What the servers did. Written by the servers' thread, read once they have ended or for figures that may be a
    little late."""

    def __init__(self):
        self.by_recipient = collections.defaultdict(list)
        self.mails = 0
        self.connections = 0
        self.replies = collections.Counter()
        self.faults = collections.Counter()   # by step and kind
        self.refusals = 0
        self.lasting = {}                     # mark of a refusal for good -> step

    def refuse(self, step, kind):
        """A reply of its own for each refusal."""
        self.refusals += 1
        text, lasts = REFUSALS[kind]
        if lasts:
            self.lasting[self.refusals] = step
        return text % self.refusals


def place_of_cut(step, reply):
    """Anywhere in the reply; but what is left of a reply to RCPT must not read as a refusal. The driver reads it after it
    has sent DATA, and gives up: the server, which waits for a text then, takes the next mail, its commands included, for
    that text, and never answers them. The driver waits its minute for each reply and counts that mail as delivered."""
    places = [place for place in range(1, len(reply)) if step != "RCPT" or reply[place:place + 1] not in (b"4", b"5")]
    return random.choice(places)


class Over(Exception):
    """The server ends the connection."""


class FaultySession(Session):
    """One connection."""

    def __init__(self, peer, reader, writer):
        super().__init__(peer, reader, writer)
        self.wildness = peer.behaviour
        self.is_encrypted = False
        self.is_connecting = True
        self.is_out_of_step = False
        self.resets_out_of_step = 0

    async def run(self):
        self.peer.record.connections += 1
        self.peer.sessions.add(self)
        try:
            await self.answer("greeting", "220 wild.example ESMTP\r\n")
            while line := await self.line():
                if line[:4].upper() == "QUIT":
                    self.writer.write(b"221 2.0.0 Bye\r\n")
                    return
                await self.obey(line[:4].upper(), line)
        except Over:
            pass
        finally:
            self.peer.sessions.discard(self)

    async def obey(self, verb, line):
        if verb == "EHLO":
            await self.greet()
        elif verb == "STAR":
            await self.start_tls()
        elif verb == "AUTH":
            await self.authenticate(line)
        elif verb == "RSET":
            await self.reset()
        elif verb == "MAIL":
            await self.sender()
        elif verb == "RCPT":
            await self.recipient(line)
        elif verb == "DATA":
            await self.data()
        elif verb in ("HELO", "NOOP"):
            await self.send(b"250 2.0.0 Ok\r\n")
        else:
            await self.send(b"502 5.5.2 No such command\r\n")

    # Steps

    async def greet(self):
        fault = self.draw("EHLO")
        offer = "250-wild.example\r\n250-8BITMIME\r\n"
        if self.wildness.tls and not self.is_encrypted and fault != "STARTTLS withdrawn":
            offer += "250-STARTTLS\r\n"
        if self.wildness.mechanisms and (self.is_encrypted or not self.wildness.demands_tls):
            offer += f"250-AUTH {self.wildness.mechanisms}\r\n"
        await self.answer("EHLO", offer + "250 ENHANCEDSTATUSCODES\r\n", fault)

    async def start_tls(self):
        fault = self.draw("STARTTLS")
        context = self.wildness.tls
        if fault == "another authority":
            fault, context = None, self.wildness.foreign_tls
        if not await self.answer("STARTTLS", "220 2.0.0 Go on\r\n", fault if fault and "220" not in fault else None):
            return
        if fault == "no TLS after 220":
            await self.reader.read(1)
            await self.send(random.randbytes(300))
            raise Over
        if fault:
            self.drop(fault.startswith("reset"))
        await self.writer.start_tls(context, ssl_handshake_timeout=20)
        self.is_encrypted = True

    async def authenticate(self, line):
        is_login = line.split()[1:2] == ["LOGIN"]
        for challenge in ("334 VXNlcm5hbWU6\r\n", "334 UGFzc3dvcmQ6\r\n") if is_login else ("334 \r\n",):
            fault = self.draw("AUTH")
            goes_on = await self.answer("AUTH", challenge, fault)
            if not goes_on or (is_login and fault == "garbage"):
                return
            line = await self.line()
            if line[:4] in VERBS:  # a client that is out of step has given up
                await self.obey(line[:4], line)
                return
        await self.answer("credentials", "235 2.7.0 Welcome\r\n")

    async def reset(self):
        self.has_sender, self.recipients = False, []
        self.is_connecting = False
        self.resets_out_of_step += self.is_out_of_step
        if self.resets_out_of_step >= OUT_OF_STEP_RESETS:
            await self.refuse("RSET", "421")
        await self.answer("RSET", "250 2.0.0 Ok\r\n")

    async def sender(self):
        if self.wildness.demands_tls and not self.is_encrypted:
            await self.send(b"530 5.7.0 Must issue a STARTTLS command first\r\n")
        elif await self.answer("MAIL", "250 2.1.0 Ok\r\n"):
            self.has_sender, self.recipients = True, []

    async def recipient(self, line):
        address = line[line.find("<") + 1:line.find(">")]
        if not self.has_sender:
            await self.refuse("RCPT", "4yz")
        elif await self.answer("RCPT", "250 2.1.5 Ok\r\n"):
            self.recipients.append(address)

    async def data(self):
        if not self.recipients:
            await self.refuse("DATA", "4yz")
        elif await self.answer("DATA", "354 Go on\r\n"):
            await self.content()

    async def content(self):
        fault = self.draw("content")
        if fault in ("close", "reset"):
            await self.reader.read(random.randrange(1, 600))
            self.drop(fault == "reset")
        if fault == "late":
            await asyncio.sleep(random.uniform(0, self.wildness.late_mailing))
        content = await self.reader.readuntil(b"\r\n.\r\n")
        subject = next((line for line in content.split(b"\r\n") if line.startswith(b"Subject: ")), b"Subject: ?")
        recipients, self.recipients, self.has_sender = self.recipients, [], False
        await self.end(recipients, subject[9:].decode("utf-8", "replace"))

    async def end(self, recipients, job):
        """Takes the mail or refuses it. It counts as taken before the reply, and as told once that is on its way."""
        stray = self.is_out_of_step
        fault = self.draw("end")
        if fault in REFUSALS:
            await self.refuse("end", fault)
            return
        if fault in ("close", "reset"):
            self.drop(fault == "reset")
        arrivals = [Arrival(self.peer.name, job, PERHAPS if stray else NO) for _ in recipients]
        self.peer.record.mails += 1
        for recipient, arrival in zip(recipients, arrivals):
            self.peer.record.by_recipient[recipient].append(arrival)
        if fault and fault.endswith("after taking"):
            self.drop(fault.startswith("reset"))
        try:
            told = YES if await self.answer("end", "250 2.0.0 Taken\r\n", fault) else NO
        except Over:  # half a reply: its first digit is what the driver looks at
            told = YES
        for arrival in arrivals:
            arrival.answer = PERHAPS if stray else told

    # Replies

    def draw(self, step):
        """The fault of this reply; None for none."""
        share = self.wildness.connecting if step in CONNECTING else self.wildness.mailing
        if self.is_out_of_step or self.peer.is_healed or random.random() >= share:
            return None
        fault = random.choice(FAULTS[step])
        if fault == "STARTTLS withdrawn" and not self.wildness.tls:
            return None
        self.peer.record.faults[f"{step}: {fault}"] += 1
        return fault

    async def answer(self, step, usual, fault=False):
        """Sends the usual reply, or what the fault makes of it; draws one unless it is given. False when the client was
        refused, or has to take the reply for a refusal."""
        if fault is False:
            fault = self.draw(step)
        if fault in REFUSALS:
            await self.refuse(step, fault)
            return False
        if fault in ("close", "reset"):
            self.drop(fault == "reset")
        return await self.twist(step, usual.encode(), fault)

    async def twist(self, step, usual, fault):
        if fault == "half a reply":
            await self.send(usual[:random.randrange(1, len(usual))])
            raise Over
        if fault == "late":
            await asyncio.sleep(random.uniform(0, self.wildness.late_connecting if step in CONNECTING
                                               else self.wildness.late_mailing))
        if fault == "garbage":
            usual = random.randbytes(random.randrange(1, 200)) + b"\r\n"
        elif fault == "two replies at once":
            usual += b"250 2.0.0 And another one\r\n"
        elif fault == "longer than a read":
            usual = usual[:4] + b"x" * LONGER_THAN_A_READ + b"\r\n"
            self.is_out_of_step = True
        elif fault == "cut in two":
            self.is_out_of_step = True
            place = place_of_cut(step, usual)
            await self.send(usual[:place])
            await asyncio.sleep(random.uniform(0.001, 0.03))
            usual = usual[place:]
            await self.send(usual)
            return True
        await self.send(usual)
        return usual[:1] not in (b"4", b"5")

    async def refuse(self, step, kind):
        await self.send(self.peer.record.refuse(step, kind).encode())
        if kind == "421":
            raise Over

    async def send(self, text):
        if self.writer.is_closing():
            raise ConnectionError("the connection was cut")
        self.peer.record.replies[text[:3].decode("latin-1") if text[:3].isdigit() else "other"] += 1
        self.writer.write(text)
        await self.writer.drain()

    def drop(self, with_reset):
        """Ends the connection without a word: with a FIN, or with a RST."""
        if with_reset:
            self.writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.writer.transport.abort()
        raise Over


class FaultyPeer(Peer):
    """One server."""

    session = FaultySession

    def __init__(self, name, behaviour, record):
        super().__init__(name, behaviour, record)
        self.is_healed = False
        self.sessions = set()

    async def close(self):
        """Connections that are out of step are left once they carry mails: what was sent over them may still have to be
        read. While the driver connects they are cut like all others: it would wait its minute for a reply that it has had
        already, and for the one to HELO another, and nothing else is handed over meanwhile."""
        self.server.close()
        for session in self.sessions:
            if session.is_connecting or not session.is_out_of_step:
                session.writer.close()

    async def restart(self, seconds):
        """Cuts the connections and refuses new ones for so long."""
        await self.close()
        await asyncio.sleep(seconds)
        await self.open()
