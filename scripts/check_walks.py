#!/usr/bin/env python3
"""Checks that ARCHITECTURE.md names what is there.

Every room (velo_room in a CMakeLists.txt) has a row in the table of rooms, where it stands below the rooms that it
depends on; so it does in a list of rooms (foreach(room ...)) of a CMakeLists.txt. In a table of the head "room | code |
what happens" the room is a folder, and each name of the code stands in a file of that folder: a file by its name, and
`Class::function` in one that declares the class. Every room is in such a table, or in one of the head "room on neither way |
why". Prints FILE:LINE of each violation; the exit status is 1 when there is one.

usage: check_walks.py [ROOT]
"""

import functools
import pathlib
import re
import sys

import check_layering

CODE = re.compile(r"`([^`]+)`")
ROOM_LIST = re.compile(r"^[ \t]*foreach\(room ([^)$]*)\)", re.MULTILINE)
DOCUMENT = "ARCHITECTURE.md"


class Tree:
    def __init__(self, root):
        self.root = root
        layers = check_layering.Tree(root)
        folder_of = {room.name: str(room.folder) for room in layers.rooms.values()}
        # Folders of rooms, as paths relative to the root, with those of the rooms that they depend on.
        self.rooms = {
            str(room.folder): [folder_of[name] for name in room.depends if name in folder_of]
            for room in sorted(layers.rooms.values(), key=lambda room: room.folder)
        }
        self.cmake = sorted(str(path) for path in layers.files if path.name == "CMakeLists.txt")

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


def out_of_order(tree, folders):
    """Complaints about rooms in a list that stand above a room of the list that they depend on."""
    for at, folder in enumerate(folders):
        for other in tree.rooms.get(folder, []):
            if other in folders[at + 1 :]:
                yield f"room {folder} stands above {other}, which it depends on"


def check_lists(tree):
    """Violations of the order in the texts of CMake, as (file, line, text)."""
    for file in tree.cmake:
        text = (tree.root / file).read_text()
        for match in ROOM_LIST.finditer(text):
            folders = [str(pathlib.Path(file).parent / name) for name in match.group(1).split()]
            line = text.count("\n", 0, match.start()) + 1
            yield from ((file, line, complaint) for complaint in out_of_order(tree, folders))


def check(root):
    """All violations, as (file, line, text)."""
    tree = Tree(pathlib.Path(root).resolve())
    violations, told, walked, aside = list(check_lists(tree)), [], set(), set()

    def complain(line, text):
        violations.append((DOCUMENT, line, text))

    for line, head, cells in rows((tree.root / DOCUMENT).read_text()):
        if head == ["room", "what it is"]:
            told += rooms_in(cells[0])
        if head == ["room on neither way", "why"]:
            aside.update(rooms_in(cells[0]))
        if head != ["room", "code", "what happens"]:
            continue
        folder = CODE.findall(cells[0])[0]
        if not (tree.root / folder).is_dir():
            complain(line, f"there is no room {folder}")
            continue
        walked.add(folder)
        for name in CODE.findall(cells[1]):
            if not tree.has(folder, name):
                complain(line, f"{folder} has no {name}")
    for room in tree.rooms:
        if room not in told:
            complain(1, f"room {room} has no row in the table of rooms")
        if (room in walked) == (room in aside):
            wrong = "both on a way and on neither" if room in aside else "on no way, and nothing says why"
            complain(1, f"room {room} is {wrong}")
    for complaint in out_of_order(tree, told):
        complain(1, complaint)
    return violations


def rooms_in(cell):
    """A row may be about several rooms of one area: `platform/Kelp`, `MemSlab`."""
    area = ""
    for name in CODE.findall(cell):
        if "/" in name:
            area = name.rpartition("/")[0] + "/"
        yield name if "/" in name else area + name


if __name__ == "__main__":
    sys.exit(check_layering.main(sys.argv, __doc__, check))
