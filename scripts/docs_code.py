#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Takes the programs out of Markdown pages, so that they can be compiled and run.

usage: docs_code.py OUTPUT PAGE...

A marker, an HTML comment on the line before a ```cpp block, says what the block is:
  <!-- program -->    a whole program
  <!-- include -->, <!-- function -->, <!-- main -->
                      lines for the top, for before main() and for the end of main(): the page's one
                      program, which grows
  <!-- prints -->     before a ```text block: what the program prints as far as it has come. What
                      was printed at the last such block, if it grew since, comes before it.
A ```cpp block without a marker is an error, so that no code is left unchecked; <!-- sketch --> marks
one that is not meant to be compiled.

Writes OUTPUT/PAGE-N.cpp and OUTPUT/PAGE-N.txt, which holds what it must print, if anything is said.
"""
import os
import re
import sys

KINDS = ("program", "include", "function", "main", "prints", "sketch")


def blocks(path):
    """(kind, line number, text) of each marked block."""
    lines = open(path, encoding="utf-8").read().split("\n")
    kind = None
    i = 0
    while i < len(lines):
        marker = re.fullmatch(r"<!-- (\w+) -->", lines[i])
        if marker:
            if marker.group(1) not in KINDS and lines[i + 1].startswith("```"):
                sys.exit("%s:%d: no such kind of block: %s" % (path, i + 1, marker.group(1)))
            kind = marker.group(1)
        elif lines[i].startswith("```") and lines[i] != "```":
            language = lines[i][3:]
            begin = i + 1
            while lines[i] != "```" or i < begin:
                i += 1
            if kind:
                yield kind, begin + 1, "\n".join(lines[begin:i]) + "\n"
            elif language == "cpp":
                sys.exit("%s:%d: code without a marker" % (path, begin))
            kind = None
        elif lines[i]:
            kind = None
        i += 1


def program(parts, path):
    def numbered(kind):
        return "".join('#line %d "%s"\n%s' % (line, path, text) for line, text in parts[kind])
    return "%s\n%s\nint main()\n{\n%s}\n" % tuple(
        numbered(k) for k in ("include", "function", "main"))


def main():
    output = sys.argv[1]
    count = 0
    for path in sys.argv[2:]:
        name = os.path.splitext(os.path.basename(path))[0].lower()
        parts = {"include": [], "function": [], "main": []}
        printed = ""
        number = 0
        found = list(blocks(path))

        def write(code, prints):
            with open(os.path.join(output, "%s-%02d.cpp" % (name, number)), "w") as file:
                file.write(code)
            if prints is not None:
                with open(os.path.join(output, "%s-%02d.txt" % (name, number)), "w") as file:
                    file.write(prints)

        for i, (kind, line, text) in enumerate(found):
            after = found[i + 1] if i + 1 < len(found) else (None, 0, "")
            if kind == "program":
                number += 1
                write('#line %d "%s"\n%s' % (line, path, text),
                      after[2] if after[0] == "prints" else None)
            elif kind in parts:
                parts[kind].append((line, text))
            elif kind == "prints" and i and found[i - 1][0] in parts:
                number += 1
                printed += text
                write(program(parts, path), printed)
        if parts["main"] and any(f[0] in parts and g[0] not in KINDS[1:5]
                                 for f, g in zip(found, found[1:] + [("",)])):
            sys.exit("%s: the last block is followed by no <!-- prints -->" % path)
        count += number
    print("docs: %d programs in %d pages" % (count, len(sys.argv) - 2))


main()
