#!/usr/bin/env python3
"""Keeps the script function reference (docs/functions.md) true to the module.

  check_functions_doc.py overloads ZENTOR DOC
      The overload tables name exactly the overloads, and their result words,
      that the built module declares: nothing missing, nothing extra.
  check_functions_doc.py examples ZENTOR DOC
      Every ```zentor block is a transcript of the host: its "> " lines are
      run as a script of their own and the host must print the block back
      byte for byte. Every declared function is called in some example.
  check_functions_doc.py selftest ZENTOR DOC
      Both checks fail on copies of DOC that drifted on purpose.

The declarations are read from the host (":definition"), never from the
sources, so the reference is held to what a script really sees. Scripts run
from files, never through a terminal, so the host's interactive mode plays
no part.
"""
import concurrent.futures
import difflib
import os
import re
import subprocess
import sys
import tempfile

# `JSON.SetSubNode (JSON,STRING,NUMBER,STRING)`: a script name, one blank, the
# parameter words as the host declares them (type names such as JSON too).
SIGNATURE = r"([A-Za-z][A-Za-z0-9_.]*) \(([A-Za-z0-9_<>,]*)\)"
DECLARATION = re.compile(r"CONST_FUNCTION (\S+) " + SIGNATURE + r" : (\S+)")
SIGNATURE_SPAN = re.compile(r"`" + SIGNATURE + r"`")
ROW_SIGNATURE = re.compile(r"^`" + SIGNATURE + r"`$")
ROW_RESULT = re.compile(r"^`([A-Za-z0-9_<>]+)`$")
FENCE = "```"
EXAMPLE_FENCE = "```zentor"


class Problems(list):
    def report(self, title):
        for problem in self:
            print(problem)
        print(f"{title}: {len(self)} problem(s)" if self else f"{title}: ok")


def run_host(zentor, args, timeout=60):
    # A host built for another system runs under the emulator that
    # ZENTOR_HOST_RUNNER names.
    runner = os.environ.get("ZENTOR_HOST_RUNNER", "").split()
    done = subprocess.run([*runner, zentor, *args], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=timeout)
    output = done.stdout.decode("utf-8", "backslashreplace")
    # Module files are named as their system names them; the page shows the
    # Linux names.
    return done.returncode, re.sub(r"(libzentor_[a-z_]+)\.(dll|dylib)", r"\1.so", output)


def unquote(text):
    """The host's quoted form of a text ("...", with \\" \\\\ \\n \\r \\t \\0 \\xNN)."""
    escapes = {'"': '"', "\\": "\\", "n": "\n", "r": "\r", "t": "\t", "0": "\0"}
    body, out, i = text[1:-1], [], 0
    while i < len(body):
        if body[i] == "\\" and body[i + 1] == "x":
            out.append(chr(int(body[i + 2:i + 4], 16)))
            i += 4
        elif body[i] == "\\":
            out.append(escapes[body[i + 1]])
            i += 2
        else:
            out.append(body[i])
            i += 1
    return "".join(out)


def declared_overloads(zentor):
    """{(name, parameter words): result word} of every function the loaded
    modules declare, as their definition text says."""
    status, output = run_host(zentor, ["--no-echo", "-c", ":definition"])
    definition = " ".join(unquote(line) for line in output.splitlines() if line.startswith('"'))
    found = DECLARATION.findall(definition)
    if status != 0 or not found or len(found) != definition.count("CONST_FUNCTION"):
        sys.exit(f"cannot read the declarations from {zentor} (status {status}):\n{output}")
    return {(name, params): result for result, name, params, _symbol in found}


def split_row(line):
    return [cell.strip() for cell in line.strip().strip("|").split("|")]


def documented_overloads(lines):
    """Rows of the overload tables: (line number, name, parameter words,
    result cell), and the signatures that the prose mentions elsewhere."""
    rows, mentions, in_fence = [], [], False
    for number, line in enumerate(lines, 1):
        if line.startswith(FENCE):
            in_fence = not in_fence
            continue
        if in_fence:
            continue
        text = line
        if line.lstrip().startswith("|"):
            cells = split_row(line)
            signature = ROW_SIGNATURE.match(cells[0])
            if signature:
                rows.append((number, *signature.groups(), cells[1] if len(cells) > 1 else ""))
                text = "|".join(cells[1:])
        mentions += [(number, *span) for span in SIGNATURE_SPAN.findall(text)]
    return rows, mentions


def check_overloads(declared, lines, doc_name):
    problems = Problems()
    rows, mentions = documented_overloads(lines)
    seen = {}
    for number, name, params, result_cell in rows:
        key = (name, params)
        if key in seen:
            problems.append(f"{doc_name}:{number}: `{name} ({params})` has a second row "
                            f"(first on line {seen[key]})")
            continue
        seen[key] = number
        if key not in declared:
            problems.append(f"{doc_name}:{number}: extra: `{name} ({params})` is not declared "
                            "by the module")
            continue
        result = ROW_RESULT.match(result_cell)
        if not result or result.group(1) != declared[key]:
            problems.append(f"{doc_name}:{number}: `{name} ({params})` returns "
                            f"`{declared[key]}`, the reference says {result_cell or 'nothing'}")
    for name, params in declared:
        if (name, params) not in seen:
            problems.append(f"{doc_name}: missing: `{name} ({params})` -> "
                            f"{declared[(name, params)]} is declared by the module but has no row")
    for number, name, params in mentions:
        if (name, params) not in declared:
            problems.append(f"{doc_name}:{number}: mentions `{name} ({params})`, which the "
                            "module does not declare")
    return problems


def example_blocks(lines):
    """(line number of the fence, the block's lines) of every ```zentor block."""
    blocks, start = [], None
    for number, line in enumerate(lines, 1):
        if start is None and line.rstrip() == EXAMPLE_FENCE:
            start, body = number, []
        elif start is not None and line.rstrip() == FENCE:
            blocks.append((start, body))
            start = None
        elif start is not None:
            body.append(line)
    if start is not None:
        blocks.append((start, None))
    return blocks


def check_examples(zentor, declared, lines, doc_name):
    problems = Problems()
    blocks = example_blocks(lines)
    if not blocks:
        problems.append(f"{doc_name}: no ```zentor example blocks")
    called = set()
    with tempfile.TemporaryDirectory() as scratch:
        runs = []
        for start, body in blocks:
            if body is None:
                problems.append(f"{doc_name}:{start}: example block is not closed")
                continue
            statements = [line[2:] for line in body if line.startswith("> ")]
            if not statements:
                problems.append(f"{doc_name}:{start}: example block has no \"> \" statement")
                continue
            called.update(re.findall(r"(?<![\w.])([A-Za-z][\w.]*)\(", "\n".join(statements)))
            script = os.path.join(scratch, f"example_{start}.zs")
            with open(script, "w", encoding="utf-8") as f:
                f.write("\n".join(statements) + "\n")
            runs.append((start, body, script))
        # Each block runs in a host of its own; under an emulator most of
        # that time is the emulator starting, so several run at once.
        with concurrent.futures.ThreadPoolExecutor(max_workers=os.cpu_count() or 2) as pool:
            results = list(pool.map(lambda run: run_host(zentor, [run[2]]), runs))
        for (start, body, _), (status, actual) in zip(runs, results):
            expected = "\n".join(body) + "\n"
            if status != 0:
                problems.append(f"{doc_name}:{start}: example ends with host status {status}:\n"
                                + actual)
            elif actual != expected:
                diff = difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                            f"{doc_name}:{start} (reference)", "zentor (actual)")
                problems.append(f"{doc_name}:{start}: example output differs:\n"
                                + "".join(diff).rstrip("\n"))
    for name in sorted({name for name, _ in declared} - called):
        problems.append(f"{doc_name}: no example calls {name}")
    return problems


def self_test(zentor, declared, lines, doc_name):
    """Breaks a copy of the reference in the ways it could drift and makes
    sure each is caught."""
    failures = []

    def expect(what, problems, needle):
        if not any(needle in problem for problem in problems):
            failures.append(f"{what} was not caught (looked for {needle!r} in {list(problems)})")

    rows, _ = documented_overloads(lines)
    number, name, params, _ = rows[0]
    signature = f"`{name} ({params})`"

    without_row = lines[:number - 1] + lines[number:]
    expect("a missing overload", check_overloads(declared, without_row, doc_name),
           f"missing: {signature}")

    bogus = "| `JSON.NoSuchFunction (JSON,NUMBER)` | `JSON` | |"
    with_extra = lines[:number] + [bogus] + lines[number:]
    expect("an extra overload", check_overloads(declared, with_extra, doc_name),
           "extra: `JSON.NoSuchFunction (JSON,NUMBER)`")

    wrong_result = "DATAREF" if declared[(name, params)] != "DATAREF" else "STRING"
    cells = split_row(lines[number - 1])
    cells[1] = f"`{wrong_result}`"
    with_wrong_result = lines[:number - 1] + ["| " + " | ".join(cells) + " |"] + lines[number:]
    expect("a wrong result word", check_overloads(declared, with_wrong_result, doc_name),
           f"{signature} returns")

    mention = lines + ["See `JSON.SubNode (JSON,NUMBER)`."]
    expect("prose naming an undeclared overload", check_overloads(declared, mention, doc_name),
           "mentions `JSON.SubNode (JSON,NUMBER)`")

    # One example alone, its last output line changed: the output differs,
    # and every function it does not call has no example.
    start, body = example_blocks(lines)[0]
    broken = [EXAMPLE_FENCE, *body[:-1], body[-1] + " (changed)", FENCE]
    problems = check_examples(zentor, declared, broken, doc_name)
    expect("a wrong example output", problems, "example output differs")
    expect("a function without example", problems, "no example calls")

    for failure in failures:
        print(failure)
    print(f"selftest: {len(failures)} drift(s) not caught" if failures
          else "selftest: every drift was caught")
    return not failures


def main():
    if len(sys.argv) != 4 or sys.argv[1] not in ("overloads", "examples", "selftest"):
        sys.exit(__doc__)
    mode, zentor, doc = sys.argv[1:]
    with open(doc, encoding="utf-8") as f:
        lines = f.read().split("\n")
    doc_name = os.path.basename(doc)
    declared = declared_overloads(zentor)
    if mode == "selftest":
        return 0 if self_test(zentor, declared, lines, doc_name) else 1
    if mode == "overloads":
        problems = check_overloads(declared, lines, doc_name)
        title = (f"{doc_name}: {len(declared)} overloads of "
                 f"{len({name for name, _ in declared})} functions")
    else:
        problems = check_examples(zentor, declared, lines, doc_name)
        title = f"{doc_name}: {len(example_blocks(lines))} examples"
    problems.report(title)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
