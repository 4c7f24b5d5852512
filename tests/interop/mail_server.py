#!/usr/bin/env python3
"""The peer of the interop tests: aiosmtpd, with STARTTLS and AUTH required.

usage: mail_server.py CERTIFICATE KEY USER PASSWORD FOLDER

Prints the port it listens on. Writes each mail it accepts to FOLDER as NUMBER.json: the envelope, and the
message as Python's email package parses it. Ends when its standard input is closed.
"""

import base64
import email
import email.policy
import json
import os
import ssl
import sys

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import AuthResult, SMTP


def describe_part(part):
    return {
        "type": part.get_content_type(),
        "filename": part.get_filename(),
        "content": base64.b64encode(part.get_payload(decode=True)).decode("ascii"),
    }


def describe(envelope, session):
    message = email.message_from_bytes(envelope.original_content, policy=email.policy.SMTP)
    return {
        "sender": envelope.mail_from,
        "recipients": envelope.rcpt_tos,
        "tls": session.ssl is not None,
        "authenticated": session.authenticated,
        "type": message.get_content_type(),
        "subject": message["Subject"],
        "from": message["From"],
        "defects": [str(defect) for part in message.walk() for defect in part.defects],
        "parts": [describe_part(part) for part in message.iter_parts()],
    }


class Handler:
    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_DATA(self, server, session, envelope):
        self.count += 1
        name = os.path.join(self.folder, f"{self.count}.json")
        with open(name + ".part", "w", encoding="ascii") as file:
            json.dump(describe(envelope, session), file)
        os.rename(name + ".part", name)
        return "250 2.0.0 taken"


class PatientSMTP(SMTP):
    """Sends a multi-line reply in one write, and takes long lines.

    The driver takes what one read returns for the whole reply. aiosmtpd writes each line of its EHLO reply for
    itself; inside TLS each line is a record of its own, and a client that reads like that falls out of step.
    """

    # The MIME library ends the lines of a base64 body with bare line feeds, which aiosmtpd does not take for line
    # ends: to it an attachment is one long line.
    line_length_limit = 1 << 20

    def __init__(self, *args, **kwargs):
        super().__init__(*args, **kwargs)
        self.held_lines = b""

    async def push(self, status):
        line = status.encode("ascii") if isinstance(status, str) else status
        if line[3:4] == b"-":
            self.held_lines += line + b"\r\n"
            return
        reply, self.held_lines = self.held_lines + line, b""
        await super().push(reply)


class StartTlsController(Controller):
    def __init__(self, handler, context, authenticator):
        super().__init__(handler, hostname="127.0.0.1", port=0)
        self.options = dict(
            tls_context=context, require_starttls=True, auth_required=True, authenticator=authenticator
        )

    def factory(self):
        return PatientSMTP(self.handler, hostname="peer.example", **self.options)

    def _trigger_server(self):
        # The base class connects to its configured port once; port 0 is not it.
        self.port = self.server.sockets[0].getsockname()[1]
        super()._trigger_server()


def main():
    certificate, key, user, password, folder = sys.argv[1:]
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)

    def authenticate(server, session, envelope, mechanism, credentials):
        good = (credentials.login, credentials.password) == (user.encode(), password.encode())
        return AuthResult(success=good, handled=False)

    controller = StartTlsController(Handler(folder), context, authenticate)
    controller.start()
    print(controller.port, flush=True)
    sys.stdin.read()
    controller.stop()


if __name__ == "__main__":
    main()
