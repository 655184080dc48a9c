#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prepares a Markdown page for doxygen: the markers of checked code go, links to files that are no
pages of the reference become plain text, and each page has a name that links can use."""
import os
import re
import sys

path = sys.argv[1]
text = open(path, encoding="utf-8").read()
text = re.sub(r"(?ms)^<!-- prints -->\n```text\n(.*?)^```\n",
              lambda m: '<div class="prints">\n\n```\n' + m.group(1) + "```\n\n</div>\n", text)
text = re.sub(r"(?m)^<!-- \w+ -->\n", "", text)
text = re.sub(r"(?m)^```text$", "```", text)


def link(match):
    title, target = match.groups()
    name = target.split("#")[0]
    if "://" in target or not name:
        return match.group()
    file = os.path.normpath(os.path.join(os.path.dirname(path), name))
    if os.path.basename(file) in ("CONTRIBUTING.md", "LICENSE", "RESULTS.md") or \
            not file.endswith((".md", ".svg", ".png")):
        return "%s (`%s`)" % (title, os.path.basename(file)) if title not in file else "`%s`" % title
    return match.group()


sys.stdout.write(re.sub(r"(?<!!)\[([^\]]+)\]\(([^)]+)\)", link, text))
