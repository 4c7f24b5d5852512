#!/usr/bin/env python3
"""Intake and tick of the driver framework as jobs and sessions grow: a table and a picture."""
import argparse
import json
import math
import pathlib
import statistics
import subprocess

JOBS = [1_000, 10_000, 100_000, 1_000_000]
SESSIONS = [1, 100, 10_000, 100_000]
COLOURS = ["#1f6feb", "#2da44e", "#d0a24c", "#cf222e"]
PANELS = [("intake", "intake, ns a job"), ("back", "tick until all are back, ns a job")]
WIDTH, HEIGHT, MARGIN = 380, 260, 56


def measure(program, jobs, sessions, rounds):
    runs = [json.loads(subprocess.run([program, str(jobs), str(sessions)], check=True, capture_output=True, text=True).stdout)
            for _ in range(rounds)]
    return {name: statistics.median(run[name] for run in runs) for name in runs[0]}


def nanoseconds(row, name):
    return row[name] * 1e9 / row["jobs"]


def table(rows):
    lines = ["| jobs | sessions | intake, ns a job | bytes a job | tick until all are back, ns a job | tick without work, ms |",
             "|---|---|---|---|---|---|"]
    for row in rows:
        lines.append(f"| {row['jobs']:,.0f} | {row['sessions']:,.0f} | {nanoseconds(row, 'intake'):,.0f} | {row['bytes'] / row['jobs']:,.0f} | "
                     f"{nanoseconds(row, 'back'):,.0f} | {row['idle_tick'] * 1000:,.3f} |")
    return "\n".join(lines) + "\n"


def panel(rows, name, title, left):
    most = max(nanoseconds(row, name) for row in rows)
    yield f'<text x="{left + MARGIN}" y="20" font-weight="bold">{title}</text>'
    for jobs in JOBS:
        yield f'<text x="{x_of(jobs, left)}" y="{HEIGHT - 8}" text-anchor="middle">{jobs:,}</text>'
    for part in range(5):
        value = most * part / 4
        y = y_of(value, most)
        yield f'<line x1="{left + MARGIN}" x2="{left + WIDTH - 10}" y1="{y}" y2="{y}" stroke="#ddd"/>'
        yield f'<text x="{left + MARGIN - 4}" y="{y + 4}" text-anchor="end">{value:,.0f}</text>'
    for number, sessions in enumerate(SESSIONS):
        points = [(x_of(row["jobs"], left), y_of(nanoseconds(row, name), most)) for row in rows if row["sessions"] == sessions]
        path = " ".join(f"{x},{y}" for x, y in points)
        yield f'<polyline points="{path}" fill="none" stroke="{COLOURS[number]}" stroke-width="2"/>'
        for x, y in points:
            yield f'<circle cx="{x}" cy="{y}" r="3" fill="{COLOURS[number]}"/>'


def x_of(jobs, left):
    first, last = math.log10(JOBS[0]), math.log10(JOBS[-1])
    return round(left + MARGIN + 20 + (WIDTH - MARGIN - 60) * (math.log10(jobs) - first) / (last - first), 1)


def y_of(value, most):
    return round(HEIGHT - 30 - (HEIGHT - 70) * value / most, 1)


def picture(rows):
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH * len(PANELS)}" height="{HEIGHT + 30}" font-family="sans-serif" font-size="11">',
             '<rect width="100%" height="100%" fill="white"/>']
    for number, (name, title) in enumerate(PANELS):
        lines += panel(rows, name, title, number * WIDTH)
    for number, sessions in enumerate(SESSIONS):
        left = MARGIN + number * 150
        lines.append(f'<rect x="{left}" y="{HEIGHT + 8}" width="12" height="12" fill="{COLOURS[number]}"/>')
        lines.append(f'<text x="{left + 18}" y="{HEIGHT + 18}">{sessions:,} session{"s" if sessions > 1 else ""}</text>')
    return "\n".join(lines + ["</svg>", ""])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, required=True)
    parser.add_argument("--out", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=3)
    options = parser.parse_args()
    options.out.mkdir(parents=True, exist_ok=True)
    rows = [measure(options.bin / "kvbench_growth", jobs, sessions, options.rounds)
            for jobs in JOBS for sessions in SESSIONS if sessions <= jobs]
    (options.out / "growth.md").write_text(table(rows), encoding="utf-8")
    (options.out / "growth.json").write_text(json.dumps(rows, indent=1) + "\n", encoding="utf-8")
    (options.out / "growth.svg").write_text(picture(rows), encoding="utf-8")
    print(table(rows))


if __name__ == "__main__":
    main()
