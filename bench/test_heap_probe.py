#!/usr/bin/env python3
"""Checks that the heap probe really sees each library's allocations.

    test_heap_probe.py BIN_DIR

A probe whose malloc stand-in was bypassed (a change in how it is linked, a
library allocating through another path) would report zero or a few bytes
and the heap rows would silently read as "no memory used".
"""

import os
import subprocess
import sys
import unittest

BIN_DIR = ""

# Every library that can hold a document, whether or not it was built in.
LIBRARIES = ["ours", "rapidjson", "nlohmann", "simdjson"]


def probe(library, source):
    return subprocess.run([os.path.join(BIN_DIR, "zentor_heap_probe"), library, source],
                          capture_output=True, text=True, check=False)


class HeapProbeTest(unittest.TestCase):
    def test_documents_are_counted(self):
        source = "synthetic:synth-strings"  # about 1 MB of JSON text
        size = 1 << 20
        for library in LIBRARIES:
            with self.subTest(library=library):
                result = probe(library, source)
                if "sanitizer" in result.stderr:
                    self.skipTest("no heap measurement in a sanitizer build")
                if "no heap measurement for library" in result.stderr:
                    continue  # that peer was not built in
                self.assertEqual(result.returncode, 0, result.stderr)
                retained, peak = map(int, result.stdout.split())
                # Any tree of a megabyte of text takes at least half as much
                # again, and no library here takes fifty times as much.
                self.assertGreater(retained, size // 2)
                self.assertLess(retained, 50 * size)
                self.assertGreaterEqual(peak, retained)

    def test_bad_arguments_fail(self):
        cases = [("ours", "synthetic:no-such-kind"), ("no-such-library", "synthetic:synth-wide")]
        for library, source in cases:
            with self.subTest(library=library, source=source):
                result = probe(library, source)
                self.assertNotEqual(result.returncode, 0)
                self.assertEqual(result.stdout, "")


if __name__ == "__main__":
    BIN_DIR = sys.argv.pop(1)
    unittest.main()
