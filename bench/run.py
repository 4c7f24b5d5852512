#!/usr/bin/env python3
"""Times the driver and its peers against one server, run by run in turn, and sets each against the floor.

Every round starts each client once, in an order that changes from round to round, so that whatever else the machine
does meets all of them alike. The figures shown are medians over the rounds; a ratio is the median of the ratios within
each round. See docs/performance.md for what the clients and the workloads are.
"""
import argparse
import json
import os
import pathlib
import platform
import random
import statistics
import subprocess
import sys
import tempfile
import time

import picture

HERE = pathlib.Path(__file__).resolve().parent
KIB = 1024
MIB = 1024 * KIB

# name: what it says of itself, bytes of text and of the attachment, recipients, delay of each reply in ms, TLS,
# messages for each number of connections, and the clients' share of them (slow clients send fewer)
WORKLOADS = {
    "a": {"title": "1 KB text", "messages": {1: 6000, 3: 30000, 10: 30000}},
    "b": {"title": "100 KB attachment", "attachment": 100 * KIB, "messages": {1: 1500, 3: 3000}},
    "c": {"title": "10 MB attachment", "attachment": 10 * MIB, "messages": {1: 24}},
    "d": {"title": "10 recipients", "recipients": 10, "messages": {1: 3000, 3: 12000}},
    "e": {"title": "1 KB text, 20 ms a reply", "delay": 20, "messages": {1: 40, 3: 600, 10: 2000}},
    "f": {"title": "1 KB text inside TLS", "tls": True, "messages": {1: 5000, 3: 20000, 10: 20000}},
}
# The divisor of the number of messages: a client that takes ten times as long need not be waited for ten times as long.
# With delayed replies all wait alike, and only the floor and the driver send for so long that connecting weighs little.
SLOWNESS = {"smtp-source": {"e": 8}, "curl": {"b": 10, "c": 8, "e": 8}, "nodemailer": {"*": 5, "e": 8},
            "smtplib": {"*": 10, "e": 8, "b": 20, "c": 12}}
QUICK = 0.2  # of the messages; of the delayed ones fewer still
QUICK_DELAYED = 0.04
FLOORS = {"b": "floor encode", "c": "floor encode"}
CLIENTS = ["floor", "floor encode", "driver", "driver log", "smtp-source", "curl", "nodemailer", "smtplib"]


class Sink:
    """The server: takes mails, counts them, keeps none."""

    def __init__(self, binaries, folder, tls, delay):
        self.port_file = folder / f"port-{time.monotonic_ns()}"
        command = [binaries / "kvsink", "--listen", "127.0.0.1:0", "--count-only", "--quiet", "--port-file", self.port_file]
        if tls:
            command += ["--self-signed", folder]
        if delay:
            command += ["--reply-delay", str(delay)]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True)
        while not self.port_file.exists():
            if self.process.poll() is not None:
                raise RuntimeError("kvsink did not start")
            time.sleep(0.01)
        self.port = int(self.port_file.read_text(encoding="ascii"))

    def stop(self):
        """The number of mails it took."""
        self.process.terminate()
        summary = self.process.communicate(timeout=20)[0].strip().splitlines()[-1]
        return int(summary.split("received ")[1].split(" ")[0])


class Bench:
    def __init__(self, binaries, folder, peers):
        self.binaries, self.folder, self.peers = binaries, folder, peers

    def available(self, client, workload):
        """Whether the client can do the workload, and is there."""
        if client == "floor encode":
            return "attachment" in workload
        if client == "driver log":
            return "delay" not in workload
        if client == "smtp-source":
            return "tls" not in workload and (self.peers / "postfix/usr/sbin/smtp-source").exists()
        if client == "nodemailer":
            return (self.peers / "node_modules/nodemailer").exists()
        if client == "curl":
            return (self.binaries / "kvbench_curl").exists()
        return True

    def command(self, client, task):
        program, _, flavour = client.partition(" ")
        options = []
        for name, value in task.items():
            options += ["--" + name, str(value)]
        if program in ("floor", "driver", "curl"):
            command = [self.binaries / f"kvbench_{program}", *options]
            if program == "driver":
                command += ["--plugin", self.binaries / "libkvsmtpdriver.so"]
            return command + (["--flavour", flavour] if flavour else [])
        if program == "smtplib":
            return [sys.executable, HERE / "clients/smtplib_client.py", *options]
        if program == "nodemailer":
            return ["node", HERE / "clients/nodemailer_client.js", *options]
        return self.smtp_source(task)

    def smtp_source(self, task):
        """It builds no MIME: the bytes of an attachment are sent as text of the size that base64 makes of them."""
        size = task["text"]
        if "attachment" in task:
            size += os.path.getsize(task["attachment"]) * 77 // 57
        return [self.peers / "postfix/usr/sbin/smtp-source", "-d", "-s", str(task["connections"]),
                "-m", str(task["messages"]), "-r", str(task["recipients"]), "-l", str(size),
                "-f", "bench@example.org", "-t", "recipient@example.org", f"127.0.0.1:{task['port']}"]

    def run(self, client, task):
        """What one run of a client took: seconds, CPU seconds and, where the client knows, its peak memory."""
        environment = dict(os.environ, NODE_PATH=str(self.peers / "node_modules"),
                           LD_LIBRARY_PATH=str(self.peers / "postfix/usr/lib/postfix"))
        begun = time.monotonic()
        process = subprocess.Popen([str(word) for word in self.command(client, task)], stdout=subprocess.PIPE,
                                   env=environment, text=True)
        output = process.stdout.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            raise RuntimeError(f"{client} ended with {process.returncode}: {process.args}")
        if output.startswith("{"):
            return json.loads(output)
        return {"seconds": time.monotonic() - begun, "cpu": usage.ru_utime + usage.ru_stime, "peak_kib": None}

    def attachment(self, size):
        path = self.folder / f"attachment-{size}"
        if not path.exists():
            path.write_bytes(random.Random(size).randbytes(size))
        return path

    def measure(self, name, connections, clients, rounds, quick):
        """All rounds of one workload; a list of results for each client."""
        workload = WORKLOADS[name]
        scale = (QUICK_DELAYED if "delay" in workload else QUICK) if quick else 1
        sink = Sink(self.binaries, self.folder, workload.get("tls", False), workload.get("delay", 0))
        task = {"port": sink.port, "connections": connections, "recipients": workload.get("recipients", 1), "text": KIB}
        if "attachment" in workload:
            task["attachment"] = self.attachment(workload["attachment"])
        if workload.get("tls"):
            task["ca"] = self.folder / "ca.pem"
        clients = [client for client in clients if self.available(client, workload)]
        results = {client: [] for client in clients}
        expected = 0
        for number in range(rounds):
            turn = number % len(clients)
            for client in clients[turn:] + clients[:turn]:
                slow = SLOWNESS.get(client, {})
                count = int(workload["messages"][connections] * scale / slow.get(name, slow.get("*", 1)))
                task["messages"] = max(count, connections, 2)
                result = self.run(client, task)
                result["messages"] = task["messages"]
                expected += task["messages"]
                results[client].append(result)
        taken = sink.stop()
        if taken != expected:
            raise RuntimeError(f"the server took {taken} mails, {expected} were sent")
        return results


def median(values):
    values = [value for value in values if value is not None]
    return statistics.median(values) if values else None


def summarise(name, results):
    """The figures of a workload, one row for each client."""
    rates = {client: [run["messages"] / run["seconds"] for run in runs] for client, runs in results.items()}
    floor = rates[FLOORS.get(name, "floor")]
    rows = []
    for client, runs in results.items():
        rows.append({
            "client": client,
            "rate": median(rates[client]),
            "ratio": median(mine / other for mine, other in zip(rates[client], floor)),
            "cpu": median(run["cpu"] * 1000 / run["messages"] for run in runs),
            "peak_mib": median(run["peak_kib"] and run["peak_kib"] / KIB for run in runs),
        })
    return rows


def machine():
    model = "unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}"


def figure(value, digits):
    return "–" if value is None else f"{value:,.{digits}f}"


OVERVIEW = ["smtp-source", "curl", "nodemailer", "smtplib"]


def rate(row):
    return figure(row and row["rate"], 1 if row and row["rate"] < 100 else 0)


def overview(report):
    """One line for each workload and number of connections."""
    lines = ["| workload | connections | floor | driver | ratio | driver log | ratio | " + " | ".join(OVERVIEW)
             + " | CPU to the floor's | peak MiB |", "|" + "---|" * (len(OVERVIEW) + 9)]
    for part in report["parts"]:
        rows = {row["client"]: row for row in part["rows"]}
        floor, driver, log = rows.get(FLOORS.get(part["workload"], "floor")), rows.get("driver"), rows.get("driver log")
        if floor is None or driver is None:
            continue
        cells = [part["workload"], str(part["connections"]), rate(floor), rate(driver), figure(driver["ratio"], 2),
                 rate(log), figure(log and log["ratio"], 2), *(rate(rows.get(client)) for client in OVERVIEW),
                 figure(driver["cpu"] / floor["cpu"], 2), figure(driver["peak_mib"], 1)]
        lines.append("| " + " | ".join(cells) + " |")
    return "\n".join(lines) + "\n"


def markdown(report):
    lines = [f"Machine: {report['machine']}. Medians of {report['rounds']} rounds.", ""]
    for part in report["parts"]:
        floor = FLOORS.get(part["workload"], "floor")
        count = part["connections"]
        lines += [f"### ({part['workload']}) {part['title']}, {count} connection{'s' if count > 1 else ''}", "",
                  f"| client | messages/s | of {floor} | CPU s per 1,000 | peak MiB |", "|---|---|---|---|---|"]
        for row in part["rows"]:
            lines.append(f"| {row['client']} | {figure(row['rate'], 1 if row['rate'] < 1000 else 0)} | {figure(row['ratio'], 2)} | "
                         f"{figure(row['cpu'], 3)} | {figure(row['peak_mib'], 1)} |")
        lines.append("")
    return "\n".join(lines)


def parse():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="folder of the built programs")
    parser.add_argument("--peers", type=pathlib.Path, required=True, help="folder of the clients that are not built here")
    parser.add_argument("--out", type=pathlib.Path, required=True, help="folder for table, raw figures and picture")
    parser.add_argument("--rounds", type=int, help="5, or 2 with --quick")
    parser.add_argument("--quick", action="store_true", help="fewer messages and two rounds: within two minutes")
    parser.add_argument("--workloads", default="".join(WORKLOADS), help="some of " + "".join(WORKLOADS))
    parser.add_argument("--connections", type=int, nargs="*", default=[1, 3, 10])
    parser.add_argument("--clients", nargs="*", default=CLIENTS, help="some of: " + ", ".join(CLIENTS))
    return parser.parse_args()


def main():
    options = parse()
    rounds = options.rounds or (2 if options.quick else 5)
    report = {"machine": machine(), "rounds": rounds, "parts": []}
    options.out.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(options.bin, pathlib.Path(folder), options.peers)
        for name in options.workloads:
            for connections in WORKLOADS[name]["messages"]:
                if connections not in options.connections:
                    continue
                results = bench.measure(name, connections, options.clients, rounds, options.quick)
                rows = summarise(name, results)
                report["parts"].append({"workload": name, "title": WORKLOADS[name]["title"], "connections": connections,
                                        "rows": rows, "runs": results})
                print(markdown(dict(report, parts=report["parts"][-1:])).split("\n", 2)[2], flush=True)
    (options.out / "figures.json").write_text(json.dumps(report, indent=1) + "\n", encoding="utf-8")
    (options.out / "table.md").write_text(overview(report) + "\n" + markdown(report), encoding="utf-8")
    (options.out / "picture.svg").write_text(picture.draw(report), encoding="utf-8")
    print(f"Written to {options.out}: table.md, figures.json, picture.svg")


if __name__ == "__main__":
    main()
