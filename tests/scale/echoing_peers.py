"""Mail servers that say what they should keep to themselves: every reply repeats the credentials that the client gave, each
time in another form."""

import asyncio
import base64
import dataclasses

from secret_forms import FORMS
from smtp_peers import Peer, Session


@dataclasses.dataclass
class Habits:
    """How a server behaves besides."""

    mechanisms: str = "PLAIN LOGIN"
    echoes: bool = True
    login: str = "235 2.7.0 Welcome"
    mail: str = "250 2.1.0 Ok"
    rcpt: str = "250 2.1.5 Ok"
    end: str = "250 2.0.0 Taken"
    busy_first: bool = False      # 451 for the first attempt of every recipient
    closes_at: str = ""           # "DATA" or "end": the connection ends there
    silent_at_end: float = 0      # seconds before the reply to a mail
    closed: tuple = (0, 0)        # for Peer: never


# What is said of the credentials, beside the secret in each form.
EXCHANGES = (
    lambda user, secret: base64.b64encode(f"\0{user}\0{secret}".encode()).decode(),
    lambda user, secret: base64.b64encode(f"{user}\0{user}\0{secret}".encode()).decode(),
    lambda user, secret: f"{{7}}-{{127.0.0.1}}-{{1}}-{{{user}}}-{{{secret}}}",
    lambda user, secret: f"{user}:{secret}@{secret}{secret}",
    lambda user, secret: "Basic " + base64.b64encode(f"{user}:{secret}".encode()).decode(),
    lambda user, secret: base64.b64encode(f"say {secret}, will you".encode()).decode(),
)
ALL_FORMS = [lambda user, secret, form=form: form(secret) for form in FORMS.values()] + list(EXCHANGES)


class EchoSession(Session):
    """One connection."""

    async def authenticate(self, line):
        mechanism = line.split()[1].upper()
        if mechanism == "PLAIN":
            await self.reply("334 ")
            answer = await self.credentials()
            _, user, secret = (base64.b64decode(answer + "=" * (-len(answer) % 4)) + b"\0\0").split(b"\0")[:3]
        else:
            await self.reply("334 VXNlcm5hbWU6")
            user = base64.b64decode(await self.credentials())
            await self.reply("334 UGFzc3dvcmQ6")
            secret = base64.b64decode(await self.credentials())
        self.peer.known = (user.decode("utf-8", "replace"), secret.decode("utf-8", "replace"))
        self.peer.heard.add(self.peer.known[1])
        await self.reply(self.peer.behaviour.login)

    async def credentials(self):
        """Base64 of more than one line, as the driver sends long credentials, is heard in full."""
        answer = await self.line()
        while len(answer) >= 76 and len(answer) % 76 == 0 and not answer.endswith("="):
            answer += await self.line()
        return answer

    async def obey(self, verb, line):
        habits = self.peer.behaviour
        if verb == "EHLO":
            await self.reply(f"250-echo.example\r\n250-AUTH {habits.mechanisms}\r\n250 8BITMIME")
        elif verb == "MAIL":
            self.has_sender, self.recipients = True, []
            await self.reply(habits.mail)
        elif habits.closes_at == "DATA" and verb == "DATA":
            raise ConnectionError("as it is meant")
        elif verb in ("AUTH", "RCPT", "DATA", "RSET", "NOOP", "HELO"):
            await super().obey(verb, line)
        else:
            await self.reply(f"502 5.5.2 What is {line}?")

    async def recipient(self, line):
        address = line[line.find("<") + 1:line.find(">")]
        self.peer.attempts[address] = self.peer.attempts.get(address, 0) + 1
        if self.peer.behaviour.busy_first and self.peer.attempts[address] == 1:
            await self.reply("451 4.3.0 Try again, you who are")
            return
        self.recipients.append(address)
        await self.reply(self.peer.behaviour.rcpt)

    async def data(self):
        await self.reply("354 Go on")
        await self.reader.readuntil(b"\r\n.\r\n")
        if self.peer.behaviour.closes_at == "end":
            raise ConnectionError("as it is meant")
        await asyncio.sleep(self.peer.behaviour.silent_at_end)
        if self.peer.behaviour.end.startswith("2"):
            self.peer.record.accept(self.peer.name, "", self.recipients, "")
        await self.reply(self.peer.behaviour.end)

    async def reply(self, text):
        if self.peer.behaviour.echoes and self.peer.known and not text.startswith("334 "):
            self.peer.echoed += 1
            text += " " + ALL_FORMS[self.peer.echoed % len(ALL_FORMS)](*self.peer.known)
        await super().reply(text)


class EchoPeer(Peer):
    """One server."""

    session = EchoSession

    def __init__(self, name, behaviour, record):
        super().__init__(name, behaviour, record)
        behaviour.reply_delay = 0
        self.known = ()         # user and password of the last client
        self.heard = set()      # every password
        self.attempts = {}
        self.echoed = 0
