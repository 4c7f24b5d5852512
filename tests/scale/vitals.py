"""Memory, descriptors and threads of a running kvhost, sampled over its run, and the proof that they do not grow."""

import os
import pathlib
import statistics
import time
import urllib.request

# What may lie between the medians of the second and the last quarter of the samples.
LIMITS = {
    # of the sample: (share, addend)
    "rss_mib": (0.10, 8.0),
    "descriptors": (0.10, 8.0),
    "threads": (0.0, 4.0),
}


class Vitals:
    """Samples of a host that runs. `connections`: as many as it may have to servers at once; in a short run some of them come
    late."""

    def __init__(self, host, http_port, connections=0):
        self.host = host
        self.http_port = http_port
        self.connections = connections
        self.begin = time.monotonic()
        self.samples = []

    def sample(self, **figures):
        process = pathlib.Path(f"/proc/{self.host.daemon.pid}")
        ticks = process.joinpath("stat").read_text(encoding="ascii").rsplit(")", 1)[1].split()[11:13]
        healthy = time.monotonic()
        with urllib.request.urlopen(f"http://127.0.0.1:{self.http_port}/healthz", timeout=30) as answer:
            answer.read()
        healthy = time.monotonic() - healthy
        self.samples.append({
            "at": round(time.monotonic() - self.begin, 2),
            "rss_mib": round(self.host.resident_mib("VmRSS"), 2),
            "descriptors": len(os.listdir(process / "fd")),
            "threads": len(os.listdir(process / "task")),
            "cpu_s": round(sum(map(int, ticks)) / os.sysconf("SC_CLK_TCK"), 2),
            "healthz_ms": round(healthy * 1000, 1),
            **figures})

    def verdict(self, slack_mib=0.0):
        """The medians of each figure, its limit, and whether it holds."""
        quarter = len(self.samples) // 4
        answer = {}
        for figure, (share, addend) in LIMITS.items():
            second = statistics.median(sample[figure] for sample in self.samples[quarter:2 * quarter] or self.samples)
            last = statistics.median(sample[figure] for sample in self.samples[-quarter:])
            limit = second * (1 + share) + addend + (slack_mib if figure == "rss_mib" else 0.0)
            if figure == "descriptors" and self.connections:
                limit = max(limit, self.samples[0][figure] + self.connections + addend)
            answer[figure] = {"second_quarter": second, "last_quarter": last, "limit": round(limit, 2),
                              "highest": max(sample[figure] for sample in self.samples), "holds": last <= limit}
        return answer


def draw(samples, figures, path, title):
    """The figures over the time as an SVG file, each as a panel of its own with its own scale."""
    width, height, left = 860, 110, 150
    span = samples[-1]["at"] or 1
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{len(figures) * height + 40}" '
             f'font-family="sans-serif" font-size="12"><rect width="100%" height="100%" fill="white"/>'
             f'<text x="10" y="20" font-size="14">{title}</text>']
    for number, (figure, label) in enumerate(figures.items()):
        top = 30 + number * height
        most = max(sample[figure] for sample in samples) or 1
        points = " ".join(f"{left + sample['at'] / span * (width - left - 20):.1f},"
                          f"{top + (height - 20) * (1 - sample[figure] / most):.1f}" for sample in samples)
        parts.append(f'<text x="10" y="{top + 12}">{label}</text><text x="10" y="{top + 30}">at most {most:g}</text>'
                     f'<line x1="{left}" y1="{top + height - 20}" x2="{width - 20}" y2="{top + height - 20}" '
                     f'stroke="#bbb"/><polyline fill="none" stroke="#1f5fa8" points="{points}"/>')
    parts.append(f'<text x="{left}" y="{len(figures) * height + 32}">0 s to {span:.0f} s</text></svg>')
    path.write_text("\n".join(parts) + "\n", encoding="utf-8")
