#!/usr/bin/env python3
"""Checks that ARCHITECTURE.md names what is there.

Every room (velo_room in a CMakeLists.txt) has a row in the table of rooms. In a table of the head "room | code |
what happens" the room is a folder, and each name of the code stands in a file of that folder: a file by its name, and
`Class::function` in one that declares the class. Prints FILE:LINE of each violation; the exit status is 1 when there is one.

usage: check_walks.py [ROOT]
"""

import functools
import pathlib
import re
import sys

import check_layering

CODE = re.compile(r"`([^`]+)`")
ROOM = re.compile(r"^[ \t]*velo_room\s*\(", re.MULTILINE)
DOCUMENT = "ARCHITECTURE.md"


class Tree:
    def __init__(self, root):
        self.root = root

    def rooms(self):
        """Folders of rooms, as paths relative to the root."""
        files = [p for p in self.root.rglob("CMakeLists.txt") if p.relative_to(self.root).parts[0] != "build"]
        folders = [p.parent for p in files if ROOM.search(re.sub(r"#.*", "", p.read_text()))]
        return sorted(str(folder.relative_to(self.root)) for folder in folders if folder != self.root)

    @functools.cache
    def texts_of(self, folder):
        return [p.read_text() for p in sorted((self.root / folder).rglob("*.*")) if p.suffix in {".h", ".cpp"}]

    def has(self, folder, name):
        if re.fullmatch(r"\w+\.\w+", name):
            return any((self.root / folder).rglob(name))
        owner, _, member = name.rpartition("::")
        return any(
            re.search(rf"\b{member}\b", text)
            and (not owner or re.search(rf"\b(class|struct|namespace) {owner}\b", text))
            for text in self.texts_of(folder)
        )


def rows(text):
    """The cells of each row of a table with its line and the head of the table."""
    head = None
    for number, line in enumerate(text.splitlines(), 1):
        if not line.startswith("|"):
            head = None
            continue
        cells = [cell.strip() for cell in line.strip("|").split("|")]
        if head is None:
            head = cells
        elif not set("".join(cells)) <= set("-"):
            yield number, head, cells


def check(root):
    """All violations, as (line, text)."""
    tree = Tree(pathlib.Path(root).resolve())
    violations, told = [], set()
    for line, head, cells in rows((tree.root / DOCUMENT).read_text()):
        if head == ["room", "what it is"]:
            told |= set(rooms_in(cells[0]))
        if head != ["room", "code", "what happens"]:
            continue
        folder = CODE.findall(cells[0])[0]
        if not (tree.root / folder).is_dir():
            violations.append((line, f"there is no room {folder}"))
            continue
        for name in CODE.findall(cells[1]):
            if not tree.has(folder, name):
                violations.append((line, f"{folder} has no {name}"))
    for room in tree.rooms():
        if room not in told:
            violations.append((1, f"room {room} has no row in the table of rooms"))
    return violations


def rooms_in(cell):
    """A row may be about several rooms of one area: `platform/Kelp`, `MemSlab`."""
    area = ""
    for name in CODE.findall(cell):
        if "/" in name:
            area = name.rpartition("/")[0] + "/"
        yield name if "/" in name else area + name


if __name__ == "__main__":
    sys.exit(check_layering.main(sys.argv, __doc__, lambda root: [(DOCUMENT, *found) for found in check(root)]))
