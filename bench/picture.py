"""The picture of a run: one panel for each workload and number of connections, a bar for each client."""
from xml.sax.saxutils import escape

PANEL_WIDTH, ROW, TITLE, MARGIN, COLUMNS = 420, 18, 30, 16, 2
LABEL, BAR = 110, 210
COLOURS = {"floor": "#9aa5b1", "floor encode": "#9aa5b1", "driver": "#1f6feb", "driver log": "#79b0ff"}
OTHER = "#d0a24c"


def draw(report):
    """SVG text. Within a panel the longest bar is the fastest client."""
    parts = report["parts"]
    height = TITLE + ROW * max(len(part["rows"]) for part in parts) + MARGIN
    rows = (len(parts) + COLUMNS - 1) // COLUMNS
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{COLUMNS * PANEL_WIDTH + MARGIN}" height="{rows * height + MARGIN}"'
             ' font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for number, part in enumerate(parts):
        lines += panel(part, MARGIN + number % COLUMNS * PANEL_WIDTH, MARGIN + number // COLUMNS * height)
    return "\n".join(lines + ["</svg>", ""])


def panel(part, left, top):
    count = part["connections"]
    title = f"({part['workload']}) {part['title']}, {count} connection{'s' if count > 1 else ''}: messages a second"
    yield f'<text x="{left}" y="{top + 12}" font-weight="bold">{escape(title)}</text>'
    fastest = max(row["rate"] for row in part["rows"])
    for number, row in enumerate(part["rows"]):
        y = top + TITLE + number * ROW
        width = max(1, BAR * row["rate"] / fastest)
        colour = COLOURS.get(row["client"], OTHER)
        digits = 0 if row["rate"] >= 100 else 1
        yield f'<text x="{left}" y="{y}">{escape(row["client"])}</text>'
        yield f'<rect x="{left + LABEL}" y="{y - 10}" width="{width:.1f}" height="12" fill="{colour}"/>'
        yield f'<text x="{left + LABEL + width + 4:.1f}" y="{y}">{row["rate"]:,.{digits}f}</text>'
