#!/usr/bin/env python3
"""Runs twitter.zs over the twitter corpus and holds what it gives to what
Python's json module makes of the same file.

  check_twitter.py ZENTOR SCRIPT CORPUS_DIR

The script reads ../shared/bench-data/twitter.json, as it does from the
repository's folder; here it runs in a scratch folder where that path leads
to CORPUS_DIR. It echoes the first ten screen names as a compact JSON array
and writes the search metadata indented by two blanks. Python writes the
same with separators=(",", ":") and indent=2: the module's indented layout
is Python's ("key": value, a comma at the line's end, "{}" and "[]" for
empty containers), and the values compared have no control characters
(which the two escape in different case) and numbers that both write as the
text has them. Exits 77 (skipped) when the corpus is missing.

Before that, the exit status of a failed parse: 1 with --strict, 0 without.
"""
import json
import os
import shutil
import subprocess
import sys
import tempfile


def run(zentor, args, cwd=None):
    runner = os.environ.get("ZENTOR_HOST_RUNNER", "").split()
    done = subprocess.run([*runner, zentor, *args], cwd=cwd, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=240)
    return done.returncode, done.stdout


def main():
    zentor, script, corpus_dir = sys.argv[1:4]
    zentor, script = os.path.abspath(zentor), os.path.abspath(script)
    problems = []
    for args, status in ((["--strict", "-c", 'JSON.FromString("[")'], 1),
                         (["-c", 'JSON.FromString("[")'], 0)):
        got, output = run(zentor, args)
        if got != status:
            problems.append(f"zentor {' '.join(args)} exited with {got}, not {status}:\n"
                            + output.decode("utf-8", "backslashreplace"))

    corpus = os.path.join(corpus_dir, "twitter.json")
    if not os.path.exists(corpus):
        for problem in problems:
            print(problem)
        print(f"skipped: no corpus at {corpus}")
        return 1 if problems else 77
    with open(corpus, encoding="utf-8") as f:
        document = json.load(f)
    names = [status["user"]["screen_name"] for status in document["statuses"][:10]]
    expected_output = (json.dumps(names, separators=(",", ":"), ensure_ascii=False) + "\n")
    expected_file = json.dumps(document["search_metadata"], indent=2, ensure_ascii=False)

    with tempfile.TemporaryDirectory() as scratch:
        os.makedirs(os.path.join(scratch, "shared"))
        os.symlink(os.path.abspath(corpus_dir), os.path.join(scratch, "shared", "bench-data"))
        folder = os.path.join(scratch, "repository")
        os.makedirs(folder)
        status, output = run(zentor, ["--strict", "--no-echo", script], cwd=folder)
        written_path = os.path.join(folder, "search_metadata.json")
        written = open(written_path, "rb").read() if os.path.exists(written_path) else None
    output = output.decode("utf-8", "backslashreplace")
    if status != 0:
        problems.append(f"twitter.zs exited with status {status}:\n{output}")
    if output != expected_output:
        problems.append(f"twitter.zs printed\n{output!r}\nnot\n{expected_output!r}")
    if written != expected_file.encode("utf-8"):
        problems.append(f"search_metadata.json holds\n{written!r}\nnot\n"
                        f"{expected_file.encode('utf-8')!r}")
    for problem in problems:
        print(problem)
    print(f"twitter corpus: {len(problems)} problem(s)" if problems else
          f"twitter corpus: the names {names[0]} ... {names[-1]} and the metadata agree")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
