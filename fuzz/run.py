#!/usr/bin/env python3
"""Runs the fuzzers of a build one after the other and prints what they did.

usage: run.py BUILD-FOLDER SECONDS [TARGET...]

Each target runs for SECONDS. What it finds new goes into BUILD-FOLDER/fuzz/found/TARGET and is where the next run goes on
from; an input that crashes, hangs or leaks goes into BUILD-FOLDER/fuzz/crashes and ends the target's run. Every run adds
a line to BUILD-FOLDER/fuzz/executions.tsv. Ends with 1 when an input was found that must not be, with 2 for bad usage.
"""
import os
import pathlib
import re
import subprocess
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
# Properties are about texts of a line or a page; longer inputs find little more and cost much.
MOST_BYTES = 600
SECONDS_OF_ONE_INPUT = 20
# A deep stack for every allocation is not worth what it costs; a crash found is run again by hand, with all of it.
ENVIRONMENT = {"ASAN_OPTIONS": "malloc_context_size=0:quarantine_size_mb=4", "UBSAN_OPTIONS": "print_stacktrace=1"}


def all_targets():
    return sorted(path.name for path in (SOURCES / "corpus").iterdir() if path.is_dir())


def command_of(build, target, seconds):
    folder = build / "fuzz"
    found = folder / "found" / target
    found.mkdir(parents=True, exist_ok=True)
    (folder / "crashes").mkdir(exist_ok=True)
    command = [str(build / "bin" / f"kvfuzz_{target}"), str(found), str(SOURCES / "corpus" / target),
               f"-max_total_time={seconds}", f"-max_len={MOST_BYTES}", f"-timeout={SECONDS_OF_ONE_INPUT}",
               "-print_final_stats=1", f"-artifact_prefix={folder}/crashes/{target}-"]
    dictionary = SOURCES / "dictionaries" / f"{target}.dict"
    return command + ([f"-dict={dictionary}"] if dictionary.exists() else [])


def number(pattern, text, default=0):
    found = re.findall(pattern, text)
    return int(found[-1]) if found else default


def run(build, target, seconds):
    log = build / "fuzz" / f"{target}.log"
    log.parent.mkdir(parents=True, exist_ok=True)
    with log.open("wb") as out:
        status = subprocess.run(command_of(build, target, seconds), stdout=out, stderr=subprocess.STDOUT,
                                env={**os.environ, **ENVIRONMENT}, check=False).returncode
    text = log.read_text(errors="replace")
    executions = number(r"stat::number_of_executed_units: (\d+)", text)
    row = {"target": target, "executions": executions, "rate": number(r"stat::average_exec_per_sec:\s+(\d+)", text),
           "edges": number(r" cov: (\d+) ", text), "all": number(r"\((\d+) inline 8-bit counters\)", text),
           "status": status}
    with (build / "fuzz" / "executions.tsv").open("a") as tally:
        tally.write(f"{target}\t{executions}\t{row['edges']}\n")
    return row


def show(row):
    verdict = "" if row["status"] == 0 else "  FOUND SOMETHING" if row["executions"] else "  DID NOT RUN"
    print(f"{row['target']:<18}{row['executions']:>12}{row['rate']:>9}{row['edges']:>8} of {row['all']}{verdict}", flush=True)


def main(arguments):
    if len(arguments) < 2 or not arguments[1].isdigit():
        print(__doc__, file=sys.stderr)
        return 2
    build, seconds, targets = pathlib.Path(arguments[0]).resolve(), int(arguments[1]), arguments[2:] or all_targets()
    unknown = [target for target in targets if target not in all_targets()]
    if unknown:
        print(f"no such target: {', '.join(unknown)}; there are {', '.join(all_targets())}", file=sys.stderr)
        return 2
    print(f"{'target':<18}{'executions':>12}{'exec/s':>9}  coverage", flush=True)
    rows = []
    for target in targets:
        rows.append(run(build, target, seconds))
        show(rows[-1])
    print(f"{'in all':<18}{sum(row['executions'] for row in rows):>12}")
    found = [row for row in rows if row["status"] != 0]
    for row in found:
        print(f"see {build}/fuzz/{row['target']}.log and the inputs in {build}/fuzz/crashes", file=sys.stderr)
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
