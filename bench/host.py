#!/usr/bin/env python3
"""Sets kvhost against the driver alone: the same mails, one carrier, one server, one after the other in every round.

driver    the plug-in with the mails in its hands already (bench/clients/driver.cpp), from the first hand-over to the last
          mail that is back
process   the same, from the start of that process to its end, the half second of the driver's clean-up included
send      `kvhost send` from reading the file of jobs to the report
submit    `kvhost submit` of all jobs; each is on disk when it ends
run       `kvhost run` from its start until the store has every one of these jobs as delivered

Prints medians over the rounds, the ratios within a round to the rates of "driver" and "process", and peak memory.
"""
import argparse
import json
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

from run import KIB, Sink, machine

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tests/scale"))

from kvhost_program import Kvhost, wait_until  # noqa: E402

STEPS = ("driver", "process", "send", "submit", "run")


def configuration(port, connections):
    return f"""
[driver]
threadpool_size = {connections}
same_carrier_connection_count = {connections}
[carrier.bench]
server = "127.0.0.1"
port = {port}
security = "clear"
sender = "bench@example.org"
"""


def write_jobs(path, count):
    line = "The quick brown fox jumps over the lazy dog, again and again.\n"
    text = (line * (KIB // len(line) + 1))[:KIB - 1] + "\n"
    with path.open("w", encoding="utf-8") as stream:
        for number in range(count):
            stream.write(json.dumps({"id": f"job-{number}", "carrier": "bench", "recipient": "recipient@example.org",
                                     "subject": "Benchmark", "text": text}) + "\n")


def timed(command):
    """Runs it to its end; seconds and peak memory in MiB. Raises unless it ends well."""
    begun = time.monotonic()
    with tempfile.TemporaryFile("w+") as said:
        process = subprocess.Popen([str(word) for word in command], stdout=said, stderr=subprocess.STDOUT)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            said.seek(0)
            raise RuntimeError(f"{command[0]} ended with {process.returncode}: {said.read()[-2000:]}")
    return time.monotonic() - begun, usage.ru_maxrss / KIB


def driver(options, port):
    """Seconds and peak memory of the delivery alone, and of the whole process."""
    begun = time.monotonic()
    done = subprocess.run([options.bin / "kvbench_driver", "--port", str(port), "--connections", str(options.connections),
                           "--messages", str(options.jobs), "--recipients", "1", "--text", str(KIB),
                           "--plugin", options.bin / "libkvsmtpdriver.so"], stdout=subprocess.PIPE, text=True, check=True)
    took = time.monotonic() - begun
    result = json.loads(done.stdout)
    peak = result["peak_kib"] / KIB
    return (result["seconds"], peak), (took, peak)


def run(host, jobs):
    begun = time.monotonic()
    host.start()
    wait_until(lambda: host.counts().get("delivered", 0) == jobs, 3600, "all are delivered", host.check_alive)
    seconds, peak = time.monotonic() - begun, host.resident_mib()
    host.stop()
    return seconds, peak


def measure(options, folder, jobs_file, port):
    """One round: seconds and MiB of each step."""
    with tempfile.TemporaryDirectory(dir=folder) as home, Kvhost(options.bin, home) as host:
        host.configure(configuration(port, options.connections))
        kvhost = options.bin / "kvhost"
        delivery, process = driver(options, port)
        return {"driver": delivery,
                "process": process,
                "send": timed([kvhost, "send", "--config", host.config, jobs_file]),
                "submit": timed([kvhost, "submit", "--config", host.config, "--jsonl", jobs_file]),
                "run": run(host, options.jobs)}


def parse():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--bin", type=pathlib.Path, required=True, help="folder of the built programs")
    parser.add_argument("--out", type=pathlib.Path, required=True, help="folder for the table and the raw figures")
    parser.add_argument("--jobs", type=int, default=100_000)
    parser.add_argument("--connections", type=int, default=3)
    parser.add_argument("--rounds", type=int, default=3)
    return parser.parse_args()


def table(options, rounds):
    lines = [f"{machine()}. {options.jobs:,} jobs of 1 KB over one carrier with {options.connections} connections; "
             f"medians of {len(rounds)} rounds.", "",
             "| step | jobs a second | to the driver | to the driver's process | peak MiB |", "|---|---|---|---|---|"]
    for step in STEPS:
        rate = statistics.median(options.jobs / result[step][0] for result in rounds)
        ratios = [statistics.median(result[base][0] / result[step][0] for result in rounds) for base in ("driver", "process")]
        peak = max(result[step][1] for result in rounds)
        lines.append(f"| {step} | {rate:,.0f} | {ratios[0]:.2f} | {ratios[1]:.2f} | {peak:,.1f} |")
    return "\n".join(lines) + "\n"


def main():
    options = parse()
    options.bin = options.bin.resolve()
    options.out.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        jobs_file = folder / "jobs.jsonl"
        write_jobs(jobs_file, options.jobs)
        sink = Sink(options.bin, folder, tls=False, delay=0)
        rounds = [measure(options, folder, jobs_file, sink.port) for _ in range(options.rounds)]
        taken, sent = sink.stop(), 3 * options.jobs * options.rounds
    if taken != sent:
        raise RuntimeError(f"the server took {taken} mails, {sent} were sent")
    (options.out / "host.json").write_text(json.dumps(rounds, indent=1) + "\n", encoding="utf-8")
    (options.out / "host.md").write_text(table(options, rounds), encoding="utf-8")
    print(table(options, rounds) + f"Written to {options.out}: host.md, host.json")


if __name__ == "__main__":
    main()
