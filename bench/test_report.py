#!/usr/bin/env python3
"""Checks that the report picks the right runs and turns ratios the right way."""

import os
import sys
import unittest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import report  # noqa: E402


def run(name, mbps=None, run_type="iteration", aggregate=None, error=False, **counters):
    entry = {"name": name, "run_name": name, "run_type": run_type}
    if aggregate:
        entry["aggregate_name"] = aggregate
        entry["name"] = f"{name}_{aggregate}"
    if mbps is not None:
        entry["bytes_per_second"] = mbps * 1e6
    if error:
        entry["error_occurred"] = True
    entry.update(counters)
    return entry


class ReportTest(unittest.TestCase):
    def test_figures(self):
        results = {"benchmarks": [
            run("parse/ours/doc", 150),  # three repetitions, then their aggregates
            run("parse/ours/doc", 210),
            run("parse/ours/doc", 190),
            run("parse/ours/doc", 180, "aggregate", "mean"),
            run("parse/ours/doc", 190, "aggregate", "median"),
            run("parse/ours/doc", 5, "aggregate", "stddev"),
            run("parse/rapidjson/doc", 400, "aggregate", "median"),  # aggregates only
            run("parse/rapidjson/doc", 300, "aggregate", "mean"),
            run("write/ours/doc", 50, error=True),
            run("heap/ours/doc/iterations:1", bytes_per_doc=3072, peak_bytes=4096),
            run("heap/rapidjson/doc/iterations:1", bytes_per_doc=1024, peak_bytes=8192),
        ]}
        figures, docs = report.load(results)
        self.assertEqual(docs, ["doc"])
        cases = [
            (("parse", "ours", "doc"), 210.0),  # the fastest repetition
            (("parse", "rapidjson", "doc"), 400.0),  # else the median
            (("write", "ours", "doc"), None),  # failed runs count for nothing
            (("heap", "ours", "doc"), 3.0),
            (("heap-peak", "rapidjson", "doc"), 8.0),
        ]
        for key, expected in cases:
            with self.subTest(key=key):
                self.assertEqual(figures.get(key), expected)

    def test_ratios_and_gaps(self):
        figures = {
            ("parse", "ours", "d"): 200.0, ("parse", "rapidjson-validating", "d"): 400.0,
            ("parse", "simdjson", "d"): 100.0,
            ("heap", "ours", "d"): 30.0, ("heap", "rapidjson", "d"): 10.0,
        }
        text, gaps = report.table(figures, ["d"])
        rows = {line.split("|")[2].strip(): line for line in text.splitlines()[2:]}
        cases = [
            ("parse MB/s", "400 (0.50)"),  # slower than the peer: below 1
            ("parse MB/s", "100 (2.00)"),
            ("heap held KB", "10 (3.00)"),  # larger than the peer: above 1
        ]
        for row, cell in cases:
            with self.subTest(row=row, cell=cell):
                self.assertIn(cell, rows[row])
        # Worst first: three times the heap, then half the speed; a faster
        # peer sorts last, and simdjson is never a like-for-like match.
        self.assertEqual([(round(g[0], 2), g[1]) for g in gaps],
                         [(3.0, True), (2.0, True), (0.5, False)])
        self.assertNotIn("msgpack-cxx", text.splitlines()[0])  # absent peers get no column


    def test_chart(self):
        figures = {
            ("parse", "ours", "d"): 200.0, ("parse", "rapidjson-validating", "d"): 400.0,
            ("parse", "simdjson", "d"): 100.0,  # a reference point: no bar
            ("msgpack-read", "ours", "d"): 50.0, ("msgpack-read", "msgpack-cxx", "d"): 100.0,
            ("heap", "ours", "d"): 30.0, ("heap", "rapidjson", "d"): 60.0,
        }
        # Speed: ours/peer; heap: peer/ours, so above 1 is always ours better.
        self.assertEqual([(b[1], b[2], round(b[4], 2)) for b in report.bars(figures, ["d"])],
                         [("parse MB/s", "RapidJSON validating", 0.5),
                          ("MessagePack read MB/s", "msgpack-cxx", 0.5),
                          ("heap held KB", "RapidJSON", 2.0)])
        import xml.etree.ElementTree as ET
        svg = ET.fromstring(report.chart(figures, ["d"]))
        rects = svg.findall("{http://www.w3.org/2000/svg}rect")
        self.assertEqual(len(rects), 1 + 3)  # the background, then a bar each
        labels = [t.text for t in svg.iter("{http://www.w3.org/2000/svg}text")]
        self.assertIn("2.00", labels)


if __name__ == "__main__":
    unittest.main()
