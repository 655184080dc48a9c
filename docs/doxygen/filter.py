#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prepares a header for doxygen, which reads its standard output.

The headers are written to be read as they are; doxygen wants to be told what a reader sees:
  - A comment stands for all declarations below it, up to the next comment or an empty line: each of
    them gets a copy, but those that override something, which have the words of what they override.
  - An example indented in a /// comment is C++.
  - Comparison operators, destructors and the like that say nothing of their own mean the usual.
  - \\n and @Rect( in a comment are text; the commands in use are listed below.
  - A class that has a header of its name, <livetable/Table>, is included by that.
Lines keep their numbers but for those that are added for a class, a list or an example.
"""
import glob
import os
import re
import sys

COMMANDS = r"code|endcode|headerfile|param|file|name|\{|\}|overload|note|warning|cond|endcond|internal"
COMPOUND = re.compile(r"(template\s*<.*>\s*)?(class|struct|union|enum|namespace|extern)\b")
USUAL = (
    (re.compile(r"(virtual )?~\w+\(\)"), "Destroys the object; see the class for what it leaves behind."),
    (re.compile(r"[A-Z]\w+\(\)( noexcept)?( = default)?;"), "A new one; see the class for its state."),
    (re.compile(r"(\w+)\(const \1\s?&\s?\w*\)"), "Copies."),
    (re.compile(r"(\w+)\(\1\s?&&\s?\w*\)"), "Moves."),
    (re.compile(r"(\w+)& operator=\(const \1\s?&"), "Copies."),
    (re.compile(r"(\w+)& operator=\(\1\s?&&"), "Moves."),
    (re.compile(r"[\w:]+ (rowCount|columnCount|data|flags|headerData|roleNames)\("),
     "As QAbstractItemModel has it; see the class."),
    (re.compile(r".*\boperator==\("), "Whether both are equal."),
    (re.compile(r".*\boperator!=\("), "Whether both are not equal."),
    (re.compile(r".*\boperator(<|>)\("), "Compares both by their order."),
    (re.compile(r".*\boperator(<=|>=)\("), "Compares both by their order."),
    (re.compile(r"Q_DECLARE|Q_DISABLE|Q_OBJECT|friend (class|struct)|using |static_assert"), None),
)


def escape(doc):
    """A comment as doxygen must see it: only the commands above are commands. Examples stay."""
    out = []
    example = False
    for line in doc:
        example = example or re.search(r"@code\b", line)
        if not example:
            line = re.sub(r"\\(?=[A-Za-z0-9\\\"'])", r"\\\\", line)
            line = re.sub(r"@(?!(" + COMMANDS + r"))(?=\w)", "&#64;", line)
            line = re.sub(r"\bdocs/(\w+\.md)\b", r"[docs/\1](docs/\1)", line)
        if "@endcode" in line:
            example = False
        out.append(line)
    return out


def named_headers():
    """The classes that have a header of their name."""
    root = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
    names = set()
    for path in glob.glob(os.path.join(root, "cmake", "headers", "*.txt")):
        with open(path, encoding="utf-8") as file:
            names.update(line.split()[0] for line in file if line.strip() and line[0] != "#")
    return names


def tell_header(out, head, names):
    """Adds the header's name to the comment above a class, which `out` ends with."""
    found = re.match(r"(template\s*<.*>\s*)?(class|struct) (LIVETABLE_\w+ )?(\w+)", head)
    if not found or found.group(4) not in names:
        return
    name = " @headerfile %s <livetable/%s>" % (os.path.basename(sys.argv[1]), found.group(4))
    last = len(out) - 1
    while last >= 0 and out[last].startswith("template"):
        last -= 1
    if out[last].startswith("///"):
        out[last] += "\n///" + name
    elif out[last].rstrip().endswith("*/"):
        out[last] = out[last].rstrip()[:-2] + name + "\n */"


def plain_text(doc):
    """The text of a /// or /** comment, its lines without the marks."""
    lines = []
    for line in doc:
        line = line.strip()
        line = re.sub(r"^(///|/\*\*|\*/|\*) ?", "", line)
        lines.append(re.sub(r" ?\*/$", "", line))
    return lines


def shared(doc, indent):
    """One comment with the content of another, on one line if that does no harm."""
    lines = plain_text(doc)
    if any(re.match(r"(\s*([-*|]|\d+\.)\s)|    |\s*@", line) for line in lines):
        return indent + "/**\n" + "".join(indent + " * " + l + "\n" for l in lines) + indent + " */ "
    return indent + "/** " + " ".join(l for l in lines if l) + " */ "


def mark_examples(lines):
    """Puts @code around what is indented behind an empty line of a /// comment."""
    out = list(lines)
    i = 0
    while i < len(out):
        if re.match(r"\s*///\s*$", out[i]) and i + 1 < len(out) and \
                re.match(r"\s*///     ", out[i + 1]):
            j = i + 1
            while j + 1 < len(out) and re.match(r"\s*///(     |\s*$)", out[j + 1]):
                j += 1
            while re.match(r"\s*///\s*$", out[j]):
                j -= 1
            out[i] = out[i].rstrip() + " @code{.cpp}"
            out[j] = out[j] + " @endcode"
            for k in range(i + 1, j + 1):
                out[k] = out[k].replace("///     ", "/// ", 1)
            i = j
        i += 1
    return out


def strip_code(line):
    line = re.sub(r'"(\\.|[^"\\])*"', '""', line)
    return re.sub(r"//.*", "", line)


def main():
    lines = mark_examples(open(sys.argv[1], encoding="utf-8").read().split("\n"))
    names = named_headers()
    out = []
    doc = []  # the comment that stands for what comes next
    fresh = False  # nothing has been declared below it yet
    i = 0
    while i < len(lines):
        text = lines[i].strip()
        if text.startswith("///") and not text.startswith("///<"):
            doc, fresh = [], True
            while i < len(lines) and lines[i].strip().startswith("///"):
                doc.append(lines[i])
                i += 1
            doc = escape(doc)
            out += doc
            if any("@}" in l or "@{" in l or "@file" in l for l in doc):
                doc = []
            continue
        if text.startswith("/**"):
            doc, fresh = [], True
            while True:
                doc.append(lines[i])
                i += 1
                if "*/" in doc[-1]:
                    break
            doc = escape(doc)
            out += doc
            if any("@}" in l or "@{" in l or "@file" in l for l in doc):
                doc = []
            continue
        if not text or text.startswith(("//", "#")) or re.match(r"(public|protected|private|Q_SIGNALS)\b.*:$", text):
            doc = []
            out.append(lines[i])
            i += 1
            continue
        following = lines[i + 1].strip() if i + 1 < len(lines) else ""
        if re.fullmatch(r"template\s*<.*>", text) and COMPOUND.match(following):
            out.append(lines[i])
            i += 1
            text = following
        if COMPOUND.match(text) and not text.endswith(";") or text.startswith(("}", "{")):
            tell_header(out, text, names)
            doc = []
            out.append(lines[i])
            i += 1
            # The head of a class goes on to its brace.
            while not re.search(r"[{};]\s*$", strip_code(lines[i - 1])) and i < len(lines) and \
                    COMPOUND.match(text):
                out.append(lines[i])
                i += 1
            continue
        # A declaration, to its end.
        begin = i
        depth = 0
        while True:
            code = strip_code(lines[i])
            depth += sum(code.count(c) for c in "({") - sum(code.count(c) for c in ")}")
            i += 1
            if i >= len(lines) or (depth <= 0 and re.search(r"[;}]\s*$", code)):
                break
            # A macro alone on its line.
            if depth <= 0 and re.fullmatch(r"\s*Q_[A-Z_]+(\(.*\))?\s*", code):
                break
        head = " ".join(l.strip() for l in lines[begin:i])
        head = re.sub(r"^((friend|static|explicit|constexpr|inline|LIVETABLE_EXPORT) )+", "", head)
        indent = re.match(r"\s*", lines[begin]).group()
        trailing = any("///<" in l for l in lines[begin:i])
        own = fresh
        fresh = False
        if not own and not trailing:
            usual = [t for pattern, t in USUAL if pattern.match(head)]
            copy = ""
            if usual and (usual[0] in (None, "Copies.", "Moves.") or not doc or
                          re.search(r"\boverride\b", head)):
                copy = indent + "/** " + usual[0] + " */ " if usual[0] else ""
            elif doc and not re.search(r"\boverride\b", head):
                copy = shared(doc, indent)
            if copy:
                out.append(copy + lines[begin].strip())
                out += lines[begin + 1:i]
                continue
        out += lines[begin:i]
    sys.stdout.write("\n".join(out))


main()
