"""The status page as a browser has it."""

import re
import subprocess
import tempfile


def chromium(*arguments, timeout=60):
    """Runs the browser in a profile of its own and answers what it printed."""
    with tempfile.TemporaryDirectory() as profile:
        command = ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                   "--disable-background-networking", "--disable-component-update", "--disable-sync",
                   "--disable-dev-shm-usage", f"--user-data-dir={profile}", *arguments]
        done = subprocess.run(command, capture_output=True, text=True, timeout=timeout, check=True)
        return done.stdout


def page_after(url, milliseconds):
    """The document as it stands after so much time of the page's own clock."""
    return chromium(f"--virtual-time-budget={milliseconds}", "--dump-dom", url)


def figure(page, name):
    found = re.search(rf'<dd id="figure-{name}">([^<]*)</dd>', page)
    assert found, f"no figure {name} in the page"
    return int(found.group(1))


def tell(what, wrong):
    """Prints what is wrong and answers the exit status."""
    for sentence in wrong:
        print(f"FAILED: {sentence}")
    print(f"{what}:", "FAILED" if wrong else "passed")
    return 1 if wrong else 0


def time_of(page):
    return re.search(r'<span id="time">([^<]*)</span>', page).group(1)
