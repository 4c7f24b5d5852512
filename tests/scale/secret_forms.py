"""The forms in which a secret may stand in something that is written, and the search for them."""

import base64
import contextlib
import dataclasses
import pathlib
import re
import shutil
import sqlite3
import tempfile
import urllib.parse

# Every secret of the run has this in it, at all distances from its beginning: who finds a secret in whatever form, or the
# best part of it, finds this. Some of its characters are others in a URL.
CORE = "Kn@r?>~7q+Zx/%9w"


def in_base64(secret, offset, encode=base64.b64encode):
    """The characters that hold bits of the secret alone when so many other bytes stand before it."""
    encoded = encode(b"x" * offset + secret.encode()).decode()
    begin = (offset * 8 + 5) // 6
    return encoded[begin:(offset + len(secret.encode())) * 8 // 6]


def in_url(secret):
    return urllib.parse.quote(secret, safe="")


FORMS = {
    "as it is": lambda secret: secret,
    "in hex": lambda secret: secret.encode().hex(),
    "in hex, upper case": lambda secret: secret.encode().hex().upper(),
    "in base64": lambda secret: in_base64(secret, 0),
    "in base64 behind 1 byte": lambda secret: in_base64(secret, 1),
    "in base64 behind 2 bytes": lambda secret: in_base64(secret, 2),
    "in base64 in a URL": lambda secret: in_url(in_base64(secret, 0)),
    "in base64 in a URL, behind 1 byte": lambda secret: in_url(in_base64(secret, 1)),
    "in base64 in a URL, behind 2 bytes": lambda secret: in_url(in_base64(secret, 2)),
    "in a URL": in_url,
    "in a URL, lower case": lambda secret: re.sub("%..", lambda match: match[0].lower(), in_url(secret)),
    "in a form": lambda secret: urllib.parse.quote_plus(secret, safe=""),
}


@dataclasses.dataclass(frozen=True)
class Hit:
    place: str
    form: str
    around: str

    def __str__(self):
        return f"{self.place} has a secret {self.form}: {self.around}"


def search(place, content, core=CORE):
    """Every form of the core in the content, told once for each form; `content` is bytes. Line ends within base64 hide
    nothing."""
    hits = []
    unwrapped = re.sub(rb"(\r\n|\n|<CR><LF>)", b"", content)
    for form, encode in FORMS.items():
        pattern = encode(core).encode()
        for text in (content, unwrapped):
            at = text.find(pattern)
            if at >= 0:
                hits.append(Hit(place, form, repr(text[max(0, at - 60):at + len(pattern) + 40])))
                break
    return hits


class Search:
    """Looks for secrets in everything that was written."""

    def __init__(self, folder):
        self.folder = folder
        self.hits = []
        self.bytes = 0
        self.files = 0

    def everything(self):
        for path in self.folder.written():
            content = path.read_bytes()
            self.files += 1
            self.bytes += len(content)
            self.hits += search(str(path.relative_to(self.folder.path)), content)
            if path.name == "jobs.db":
                self.hits += search(f"the rows of {path.relative_to(self.folder.path)}", rows_of(path))

    def misses(self, secret):
        """Puts the secret in each form into a copy of the store; the forms in which it was not found there."""
        missed = []
        for form, encode in FORMS.items():
            with tempfile.TemporaryDirectory() as scratch:
                copy = shutil.copytree(self.folder.path / "store", pathlib.Path(scratch) / "store",
                                       ignore=shutil.ignore_patterns("doorbell", "attachments"))
                with contextlib.closing(sqlite3.connect(copy / "jobs.db")) as store:
                    store.execute("UPDATE job SET reason = ? WHERE key = (SELECT min(key) FROM job)",
                                  ("550 no " + encode(secret) + " here",))
                    store.commit()
                found = {hit.form for hit in search("store", rows_of(copy / "jobs.db"))}
                found |= {hit.form for hit in search("store", b"".join(path.read_bytes() for path in copy.iterdir()))}
            if form not in found:
                missed.append(form)
        return missed


def rows_of(database):
    """Every value of every table: a text may be spread over pages of the file."""
    parts = []
    with contextlib.closing(sqlite3.connect(database)) as store:
        for (table,) in store.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
            for row in store.execute(f"SELECT * FROM {table}"):
                parts += [value if isinstance(value, bytes) else str(value).encode("utf-8", "replace") for value in row]
    return b"\n".join(parts)
