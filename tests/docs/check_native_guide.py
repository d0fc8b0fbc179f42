#!/usr/bin/env python3
"""Keeps the module author's guide (docs/native-modules.md) true to its example.

  check_native_guide.py code ROOT
      Every ```cpp block of ROOT/docs/native-modules.md appears, line for
      line and in one piece, in the example module's source, every ```cmake
      block in the example's CMakeLists.txt, and every ```text block (what
      the host prints) in the expected output of the golden script that
      loads a module with a broken definition: the guide shows the
      example's own code, which CI builds against the installed package and
      runs.
  check_native_guide.py selftest ROOT
      The check fails on a copy of the guide with one code line changed, and
      on one with a code block that the example does not have.
"""
import os
import sys
import tempfile

GUIDE = "docs/native-modules.md"
SOURCES = {
    "cpp": "examples/native-module/ExampleModule.cpp",
    "cmake": "examples/native-module/CMakeLists.txt",
    "text": "tests/golden/host_definition_check.out",
}


def code_blocks(text):
    """(language, first line number, lines) of every fenced block."""
    blocks, language, start, lines = [], None, 0, []
    for number, line in enumerate(text.splitlines(), 1):
        if language is None and line.startswith("```"):
            language, start, lines = line[3:].strip(), number + 1, []
        elif language is not None and line.startswith("```"):
            blocks.append((language, start, lines))
            language = None
        elif language is not None:
            lines.append(line)
    return blocks


def contains(lines, block):
    return any(lines[i:i + len(block)] == block for i in range(len(lines) - len(block) + 1))


def check(doc, root):
    with open(doc, encoding="utf-8") as f:
        blocks = code_blocks(f.read())
    sources = {}
    for language, name in SOURCES.items():
        with open(os.path.join(root, name), encoding="utf-8") as f:
            sources[language] = f.read().splitlines()
    problems, checked = [], 0
    for language, start, lines in blocks:
        if language not in sources:
            continue
        checked += 1
        if not lines or not contains(sources[language], lines):
            problems.append(f"{doc}:{start}: this {language} block is not in "
                            f"{SOURCES[language]} as it stands")
    if checked == 0:
        problems.append(f"{doc}: no cpp, cmake or text block found")
    return problems


def selftest(root):
    doc = os.path.join(root, GUIDE)
    with open(doc, encoding="utf-8") as f:
        text = f.read()
    if check(doc, root):
        return ["the guide itself fails the check"]
    lines = text.splitlines()
    first = next(start for language, start, block in code_blocks(text) if language == "cpp")
    changed = list(lines)
    changed[first - 1] += " // drifted"
    added = lines + ["```cpp", "int NotInTheExample();", "```"]
    problems = []
    with tempfile.TemporaryDirectory() as folder:
        for name, copy in (("a changed line", changed), ("a block of its own", added)):
            path = os.path.join(folder, "guide.md")
            with open(path, "w", encoding="utf-8") as f:
                f.write("\n".join(copy) + "\n")
            if not check(path, root):
                problems.append(f"a copy with {name} passes the check")
    return problems


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("code", "selftest"):
        print(__doc__)
        return 2
    mode, root = sys.argv[1:]
    problems = check(os.path.join(root, GUIDE), root) if mode == "code" else selftest(root)
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
