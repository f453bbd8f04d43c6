#!/usr/bin/env python3
"""Makes a manual page of a document, so that what it says is written down once.

usage: manual_page.py DOCUMENT.md NAME SECTION "WHAT IT IS"   prints the page

It knows what the documents have: headings, paragraphs, lists, tables, and lines as they are typed.
"""

import re
import sys


def roff(text):
    """A text as roff prints it, with what is between marks in bold or italic type. Links keep their text."""
    text = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", text)
    made = ""
    for part in re.split(r"(`[^`]*`|\*\*[^*]*\*\*|\*[^* ][^*]*\*)", text):
        mark = next((mark for mark in ("`", "**", "*") if part.startswith(mark) and part.endswith(mark) and len(part) > len(mark)), "")
        words = part[len(mark):len(part) - len(mark)].replace("\\|", "|").replace("\\", "\\e").replace("-", "\\-")
        made += {"": words, "*": f"\\fI{words}\\fR"}.get(mark, f"\\fB{words}\\fR")
    return "\\&" + made if made[:1] in (".", "'") else made


def cells(row):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]


def table(rows):
    """A row of a statement and what it is becomes a paragraph with a title, names of numbers become columns."""
    head, body = cells(rows[0]), [cells(row) for row in rows[2:]]
    if head[-1] == "names":
        widths = [max(len(row[i]) for row in body) + 2 for i in range(len(head) - 1)]
        lines = ["".join(f"{cell:{width}}" for cell, width in zip(row, widths)) + row[-1].replace("`", "") for row in body]
        return [".nf", *map(roff, lines), ".fi"]
    return [line for title, *rest in body for line in (".TP", roff(title), roff(" ".join(rest)))]


def blocks(lines):
    """The lines of each block, which all of one kind."""
    def kind(line):
        if not line.strip():
            return ""
        return "heading" if line.startswith("#") else "table" if line.startswith("|") else "text"

    block = []
    for line in [*lines, ""]:
        typed = line.startswith("    ")
        goes_on = block and (
            (kind(line) == "table" and kind(block[0]) == "table") or
            (block[0].startswith("    ") and (typed or (not line.strip()))) or
            (kind(block[0]) == "text" and not block[0].startswith("    ") and kind(line) == "text" and not line.startswith("- ")))
        if not goes_on:
            if block:
                yield block
            block = []
        if line.strip() or block:
            block.append(line)
    if block:
        yield block


def page(document, name, section, what):
    made = [f'.TH {name.upper()} {section}'.replace("-", "\\-"), ".nh", ".SH NAME", f"{roff(name)} \\- {roff(what)}", ".SH DESCRIPTION"]
    for block in blocks(document.splitlines()):
        first = block[0]
        if first.startswith("# "):
            continue
        if first.startswith("## "):
            made.append(f".SH {roff(first[3:]).upper()}")
        elif first.startswith("### "):
            made.append(f".SS {roff(first[4:])}")
        elif first.startswith("|"):
            made += table(block)
        elif first.startswith("    "):
            made += [".PP", ".nf", ".RS 3", *(roff(line[4:]) for line in "\n".join(block).rstrip().split("\n")), ".RE", ".fi"]
        elif first.startswith("- "):
            made += [".IP \\(bu 2", roff(" ".join(line.strip() for line in block)[2:])]
        else:
            made += [".PP", roff(" ".join(line.strip() for line in block))]
    return "\n".join(made) + "\n.SH SEE ALSO\n\\fBvelo\\fR(1), \\fBvelo\\-check\\fR(1)\n"


if __name__ == "__main__":
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    with open(sys.argv[1], encoding="utf-8") as file:
        sys.stdout.write(page(file.read(), *sys.argv[2:]))
