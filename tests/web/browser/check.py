#!/usr/bin/env python3
"""Looks at the status page through a real browser.

usage: check.py KVSTATUSDEMO [SCREENSHOT]

Needs chromium. Starts the program, which serves a page whose figures move, and checks what the browser makes of it: the
script refreshes the figures, a failure's reason is shown, and hostile text in a subject stays text. With SCREENSHOT, a
picture of the page is written to that file.
"""
import html
import re
import subprocess
import sys
import tempfile
import urllib.request

from browser import chromium, figure, page_after, tell, time_of

HOSTILE = "</td><script>document.title='broken'</script> \"quoted\" & 'so' &amp; \u20ac"
REASON = "550 5.1.1 <nobody@example.org>: Recipient address rejected: User unknown"


def check(url):
    """Answers what is wrong, one sentence each."""
    with urllib.request.urlopen(url) as answer:
        served = answer.read().decode()
    first = page_after(url, 500)
    second = page_after(url, 7000)
    bars = re.findall(r'<rect class="delivered"', second)
    expectations = {
        "the page is complete without its script":
            html.escape(HOSTILE).replace("&#x27;", "&#39;") in served and html.escape(REASON) in served,
        "the script refreshes the figures": figure(second, "delivered") > figure(first, "delivered"),
        "the script refreshes the time": time_of(second) > time_of(first),
        "a failure's reason is shown": html.escape(REASON, quote=False) in second,
        "hostile text in a subject stays text after a refresh": html.escape(HOSTILE, quote=False) in second,
        "hostile text runs no script": "<title>kvhost</title>" in second,
        "the last hour has bars": len(bars) > 30,
        "the page is not called stale": re.search(r'<p id="stale"[^>]* hidden', second) is not None,
        "a carrier in trouble is shown": ": Failed to connect to 192.0.2.17:25" in second,
    }
    return [what for what, holds in expectations.items() if not holds]


def main():
    demo = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        program = subprocess.Popen([demo, folder], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        try:
            url = f"http://127.0.0.1:{int(program.stdout.readline())}/"
            wrong = check(url)
            if len(sys.argv) > 2:
                chromium("--window-size=1280,1500", "--hide-scrollbars", "--force-device-scale-factor=1",
                         "--virtual-time-budget=5000", f"--screenshot={sys.argv[2]}", url)
        finally:
            program.stdin.close()
            program.wait(timeout=30)
    return tell("the status page in a browser", wrong)


if __name__ == "__main__":
    sys.exit(main())
