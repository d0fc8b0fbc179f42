#!/usr/bin/env python3
"""Turns the benchmark's JSON output into one Markdown table, and a chart.

    report.py RESULTS.json [CHART.svg]

Rows are document and operation; columns are ours and each peer. MB/s is
that of the fastest repetition. A peer's
cell holds its figure and, in parentheses, ours divided by it: for MB/s a
ratio above 1 means we are faster, for heap sizes a ratio above 1 means we
use more. After the table come the largest gaps, worst first.

The chart (SVG, written when a path is given) has one bar per document,
operation and like-for-like peer: how many times better ours is, on a
logarithmic scale with a line at 1 (longer to the right is better for us;
for heap sizes "better" means smaller).
"""

import json
import math
import sys
from xml.sax.saxutils import escape

OPERATIONS = [
    # (operation, row title, what the figure is)
    ("parse", "parse MB/s", "speed"),
    ("write", "compact write MB/s", "speed"),
    ("pretty", "indented write MB/s", "speed"),
    ("msgpack-write", "MessagePack write MB/s", "speed"),
    ("msgpack-read", "MessagePack read MB/s", "speed"),
    ("copy", "deep copy MB/s", "speed"),
    ("heap", "heap held KB", "size"),
    ("heap-peak", "heap peak KB", "size"),
]

COLUMNS = [
    # (contender as named in the benchmark, column title)
    ("ours", "ours"),
    ("rapidjson-validating", "RapidJSON validating"),
    ("rapidjson", "RapidJSON"),
    ("nlohmann", "nlohmann ordered"),
    ("simdjson", "simdjson DOM"),
    ("msgpack-cxx", "msgpack-cxx"),
]


def like_for_like(op, contender):
    """Whether the peer does the same work as we do for this operation.

    RapidJSON's default parse skips UTF-8 validation and exact numbers, and
    simdjson's DOM and msgpack-cxx's object build no member index; those are
    reference points rather than fair matches.
    """
    if contender in ("simdjson", "msgpack-cxx"):
        return False
    return not (contender == "rapidjson" and op == "parse")


def load(results):
    """Figures by (operation, contender, document), from parsed JSON output.

    Of repeated runs the best counts: on a shared machine other work only
    ever slows a run down, so the fastest repetition is the steadiest
    estimate. Where only aggregates were written, the median stands in.
    Runs that failed are left out.
    """
    runs = {}  # key -> (from repetitions?, figure)
    order = []

    def offer(key, figure, repetition):
        # Heap figures come from a single run, so "best" only ever picks speeds.
        had = runs.get(key)
        if had is None or (repetition and not had[0]):
            runs[key] = (repetition, figure)
        elif repetition and had[0]:
            runs[key] = (True, max(had[1], figure))

    for run in results.get("benchmarks", []):
        if run.get("error_occurred"):
            continue
        repetition = run.get("run_type", "iteration") == "iteration"
        if not repetition and run.get("aggregate_name") != "median":
            continue
        name = run.get("run_name", run["name"])
        # Settings the framework appends ("iterations:1") are not name parts.
        parts = [p for p in name.split("/") if ":" not in p]
        if len(parts) < 3:
            continue
        op, contender, doc = parts[0], parts[1], "/".join(parts[2:])
        if doc not in order:
            order.append(doc)
        if op == "heap":
            offer(("heap", contender, doc), run["bytes_per_doc"] / 1024.0, repetition)
            offer(("heap-peak", contender, doc), run["peak_bytes"] / 1024.0, repetition)
        elif "bytes_per_second" in run:
            offer((op, contender, doc), run["bytes_per_second"] / 1e6, repetition)
    return {key: figure for key, (_, figure) in runs.items()}, order


def fmt(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def table(figures, docs):
    """The Markdown table, plus the gaps as (times worse, like for like,
    description), worst first."""
    present = [c for c in COLUMNS if any(k[1] == c[0] for k in figures)]
    lines = [
        "| document | operation | " + " | ".join(title for _, title in present) + " |",
        "|---|---|" + "---:|" * len(present),
    ]
    gaps = []
    for doc in docs:
        for op, title, kind in OPERATIONS:
            ours = figures.get((op, "ours", doc))
            cells = []
            for contender, column in present:
                value = figures.get((op, contender, doc))
                if value is None:
                    cells.append("")
                elif contender == "ours" or ours is None:
                    cells.append(fmt(value))
                else:
                    ratio = ours / value if value else float("inf")
                    cells.append(f"{fmt(value)} ({ratio:.2f})")
                    # A gap is how many times worse we are: slower, or larger.
                    worse = 1 / ratio if kind == "speed" else ratio
                    gaps.append((worse, like_for_like(op, contender),
                                 f"{doc} {title}: ours {fmt(ours)}, {column} {fmt(value)}, "
                                 f"ours/peer {ratio:.2f}"))
            if any(cells):
                lines.append(f"| {doc} | {title} | " + " | ".join(cells) + " |")
    gaps.sort(key=lambda g: -g[0])
    return "\n".join(lines), gaps


def report(results, gap_count=10):
    figures, docs = load(results)
    text, gaps = table(figures, docs)
    out = [text, ""]
    context = results.get("context", {})
    out.append("Cells: figure (ours/peer). MB/s, fastest repetition: above 1 means ours "
               "is faster. Heap: above 1 means ours uses more.")
    missing = context.get("missing_peers")
    if missing and missing != "none":
        out.append(f"Peers not built in: {missing}.")
    for title, wanted in (("like-for-like peers", True), ("reference points", False)):
        worst = [g for g in gaps if g[0] > 1 and g[1] == wanted][:gap_count]
        if worst:
            out += ["", f"Largest gaps against {title} (times worse than the peer):"]
            out += [f"- {w:.2f}x  {desc}" for w, _, desc in worst]
    return "\n".join(out) + "\n"


PEER_COLOURS = {
    "rapidjson-validating": "#4e79a7",
    "rapidjson": "#76b7b2",
    "nlohmann": "#f28e2b",
    "simdjson": "#59a14f",
    "msgpack-cxx": "#e15759",
}


def bars(figures, docs):
    """(document, operation title, peer column, times better) for the chart:
    like-for-like peers, and msgpack-cxx for the MessagePack operations,
    where it is the one peer there is."""
    out = []
    for doc in docs:
        for op, title, kind in OPERATIONS:
            if op == "heap-peak":
                continue
            ours = figures.get((op, "ours", doc))
            if not ours:
                continue
            for contender, column in COLUMNS[1:]:
                value = figures.get((op, contender, doc))
                fair = like_for_like(op, contender) or (
                    contender == "msgpack-cxx" and op.startswith("msgpack"))
                if not value or not fair:
                    continue
                better = ours / value if kind == "speed" else value / ours
                out.append((doc, title, column, contender, better))
    return out


def chart(figures, docs):
    """The SVG text of the chart."""
    rows = bars(figures, docs)
    low, high = 0.25, 8.0  # the axis spans these ratios; longer bars are clipped
    for *_, better in rows:
        while better < low:
            low /= 2
        while better > high:
            high *= 2
    label_w, plot_w, row_h, top = 330, 420, 16, 40
    height = top + row_h * len(rows) + 60
    width = label_w + plot_w + 70

    def x(ratio):
        ratio = min(max(ratio, low), high)
        return label_w + plot_w * (math.log(ratio) - math.log(low)) / (math.log(high) - math.log(low))

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
           f'font-family="sans-serif" font-size="11">',
           f'<rect width="{width}" height="{height}" fill="white"/>',
           f'<text x="{label_w}" y="18" font-size="13" font-weight="bold">'
           'How many times better ours is than each peer (log scale)</text>']
    ticks, t = [], low
    while t <= high * 1.001:
        ticks.append(t)
        t *= 2
    for t in ticks:
        out.append(f'<line x1="{x(t):.1f}" y1="{top - 6}" x2="{x(t):.1f}" '
                   f'y2="{top + row_h * len(rows)}" stroke="#ddd"/>')
        out.append(f'<text x="{x(t):.1f}" y="{top + row_h * len(rows) + 14}" '
                   f'text-anchor="middle">{t:g}</text>')
    previous_doc = None
    for i, (doc, title, column, contender, better) in enumerate(rows):
        y = top + i * row_h
        if doc != previous_doc and previous_doc is not None:
            out.append(f'<line x1="0" y1="{y}" x2="{width}" y2="{y}" stroke="#999"/>')
        previous_doc = doc
        out.append(f'<text x="{label_w - 6}" y="{y + 12}" text-anchor="end">'
                   f'{escape(doc)}, {escape(title)} vs {escape(column)}</text>')
        x0, x1 = x(1.0), x(better)
        out.append(f'<rect x="{min(x0, x1):.1f}" y="{y + 3}" width="{abs(x1 - x0):.1f}" '
                   f'height="{row_h - 5}" fill="{PEER_COLOURS.get(contender, "#888")}"/>')
        out.append(f'<text x="{max(x0, x1) + 4:.1f}" y="{y + 12}">{better:.2f}</text>')
    out.append(f'<line x1="{x(1.0):.1f}" y1="{top - 6}" x2="{x(1.0):.1f}" '
               f'y2="{top + row_h * len(rows)}" stroke="black" stroke-width="1.5"/>')
    out.append(f'<text x="{x(1.0):.1f}" y="{top + row_h * len(rows) + 30}" text-anchor="middle">'
               'left of the line: the peer is better; right: ours is</text>')
    out.append("</svg>")
    return "\n".join(out) + "\n"


def main(argv):
    if len(argv) not in (2, 3):
        sys.stderr.write(__doc__)
        return 2
    with open(argv[1], encoding="utf-8") as f:
        results = json.load(f)
    sys.stdout.write(report(results))
    if len(argv) == 3:
        figures, docs = load(results)
        with open(argv[2], "w", encoding="utf-8") as f:
            f.write(chart(figures, docs))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
