"""Mail servers for the scale runs: as many as one likes in one thread, each with a behaviour of its own, and one record
of every mail that any of them took.

A reply goes out in one piece, also one of several lines.
"""

import asyncio
import collections
import dataclasses
import threading
import time

REFUSED_PREFIX = "nobody"


@dataclasses.dataclass
class Behaviour:
    """What is peculiar about a server. Times are seconds since the servers were started."""

    refuses_nobody: bool = False          # 550 5.1.1 for recipients that begin with "nobody"
    busy: tuple = (0, 0)                  # from, until: 451 4.3.0 for every recipient
    closed: tuple = (0, 0)                # from, until: nothing listens on the port
    reply_delay: float = 0                # before each reply
    refuses_login: bool = False           # 535 5.7.8 for every AUTH


@dataclasses.dataclass(frozen=True)
class Acceptance:
    """A mail that a server answered with 250 at its end."""

    carrier: str
    user: str
    job: str      # from the subject
    at: float     # wall clock, seconds


class Record:
    """Every mail that was taken, by recipient. Written by the servers' thread, read once they have ended or for
    figures that may be a little late."""

    def __init__(self):
        self.by_recipient = collections.defaultdict(list)
        self.mails = 0
        self.replies = collections.Counter()  # by code

    def accept(self, carrier, user, recipients, job):
        at = time.time()
        self.mails += 1
        for recipient in recipients:
            self.by_recipient[recipient].append(Acceptance(carrier, user, job, at))


class Session:
    """One connection."""

    def __init__(self, peer, reader, writer):
        self.peer = peer
        self.reader = reader
        self.writer = writer
        self.user = ""
        self.recipients = []
        self.has_sender = False

    async def run(self):
        await self.reply("220 scale.example ESMTP")
        while line := await self.line():
            verb = line[:4].upper()
            if verb == "QUIT":
                await self.reply("221 2.0.0 Bye")
                return
            await self.obey(verb, line)

    async def line(self):
        line = await self.reader.readline()
        return line.decode("utf-8", "replace").rstrip("\r\n") if line.endswith(b"\n") else ""

    async def obey(self, verb, line):
        if verb == "EHLO":
            await self.reply("250-scale.example\r\n250-8BITMIME\r\n250-AUTH PLAIN LOGIN\r\n250 ENHANCEDSTATUSCODES")
        elif verb == "AUTH":
            await self.authenticate(line)
        elif verb == "MAIL":
            self.has_sender, self.recipients = True, []
            await self.reply("250 2.1.0 Ok")
        elif verb == "RCPT":
            await self.recipient(line)
        elif verb == "DATA":
            await self.data()
        elif verb == "RSET":
            self.has_sender, self.recipients = False, []
            await self.reply("250 2.0.0 Ok")
        elif verb in ("HELO", "NOOP"):
            await self.reply("250 2.0.0 Ok")
        else:
            await self.reply("502 5.5.2 No such command")

    async def authenticate(self, line):
        words = line.split()
        if len(words) < 2 or words[1].upper() not in ("PLAIN", "LOGIN"):
            return await self.reply("504 5.5.4 No such mechanism")
        rounds = 2 if words[1].upper() == "LOGIN" else 1
        for _ in range(rounds - (len(words) - 2)):
            await self.reply("334 ")
            await self.line()
        if self.peer.behaviour.refuses_login:
            return await self.reply("535 5.7.8 Authentication failed")
        self.user = self.peer.name
        return await self.reply("235 2.7.0 Welcome")

    async def recipient(self, line):
        address = line[line.find("<") + 1:line.find(">")]
        if self.peer.is_within(self.peer.behaviour.busy):
            await self.reply("451 4.3.0 Busy, try again later")
        elif self.peer.behaviour.refuses_nobody and address.startswith(REFUSED_PREFIX):
            await self.reply("550 5.1.1 No such recipient")
        elif not self.has_sender:
            await self.reply("503 5.5.1 MAIL first")
        else:
            self.recipients.append(address)
            await self.reply("250 2.1.5 Ok")

    async def data(self):
        if not self.recipients:
            return await self.reply("554 5.5.1 No valid recipients")
        await self.reply("354 Go on")
        content = await self.reader.readuntil(b"\r\n.\r\n")
        subject = next((text for text in content.split(b"\r\n") if text.startswith(b"Subject: ")), b"Subject: ?")
        # The record comes first: a mail whose reply is lost on the way has been taken all the same.
        recipients, self.recipients, self.has_sender = self.recipients, [], False
        self.peer.record.accept(self.peer.name, self.user, recipients, subject[9:].decode("utf-8", "replace"))
        return await self.reply("250 2.0.0 Ok")

    async def reply(self, text):
        if self.peer.behaviour.reply_delay:
            await asyncio.sleep(self.peer.behaviour.reply_delay)
        self.peer.record.replies[text[:3]] += 1
        self.writer.write(text.encode() + b"\r\n")
        await self.writer.drain()


class Peer:
    """One server: it opens and closes its port as its behaviour says."""

    session = Session

    def __init__(self, name, behaviour, record):
        self.name = name
        self.behaviour = behaviour
        self.record = record
        self.port = 0
        self.started = time.monotonic()
        self.server = None
        self.writers = set()

    def is_within(self, span):
        return span[0] <= time.monotonic() - self.started < span[1]

    async def open(self):
        self.server = await asyncio.start_server(self.serve, "127.0.0.1", self.port, limit=1 << 26, backlog=500)
        self.port = self.server.sockets[0].getsockname()[1]

    async def close(self):
        self.server.close()
        for writer in list(self.writers):
            writer.close()

    async def live(self):
        """Closes and opens the port in its time."""
        begin, end = self.behaviour.closed
        if end <= begin:
            return
        await asyncio.sleep(begin - (time.monotonic() - self.started))
        await self.close()
        await asyncio.sleep(end - (time.monotonic() - self.started))
        await self.open()

    async def serve(self, reader, writer):
        self.writers.add(writer)
        try:
            await self.session(self, reader, writer).run()
        except (OSError, asyncio.IncompleteReadError, RuntimeError, asyncio.CancelledError):
            pass  # the client has gone, or the servers end
        finally:
            self.writers.discard(writer)
            writer.close()


class SmtpPeers:
    """All servers, on a thread of their own; a context manager.

        with SmtpPeers({"relay": Behaviour()}) as peers:
            peers.port("relay")
    """

    def __init__(self, behaviours, record=None, peer=Peer):
        self.record = record or Record()
        self.peers = {name: peer(name, behaviour, self.record) for name, behaviour in behaviours.items()}
        self.loop = asyncio.new_event_loop()
        self.opened = threading.Event()
        self.thread = threading.Thread(target=self.run, daemon=True)

    def port(self, name):
        return self.peers[name].port

    def restart_clocks(self):
        """The spans of the behaviours count from now."""
        for peer in self.peers.values():
            peer.started = time.monotonic()
        for peer in self.peers.values():
            asyncio.run_coroutine_threadsafe(peer.live(), self.loop)

    def call(self, name, action):
        """Begins an action, given as a coroutine of the server of that name."""
        asyncio.run_coroutine_threadsafe(action(self.peers[name]), self.loop)

    def __enter__(self):
        self.thread.start()
        if not self.opened.wait(30):
            raise RuntimeError("the mail servers did not start")
        return self

    def __exit__(self, *_):
        asyncio.run_coroutine_threadsafe(self.end(), self.loop).result(30)
        self.loop.call_soon_threadsafe(self.loop.stop)
        self.thread.join(30)

    def run(self):
        asyncio.set_event_loop(self.loop)
        self.loop.run_until_complete(self.begin())
        self.loop.run_forever()
        self.loop.close()

    async def begin(self):
        for peer in self.peers.values():
            await peer.open()
        self.opened.set()

    async def end(self):
        for peer in self.peers.values():
            await peer.close()
        others = [task for task in asyncio.all_tasks() if task is not asyncio.current_task()]
        for task in others:
            task.cancel()
        await asyncio.gather(*others, return_exceptions=True)
