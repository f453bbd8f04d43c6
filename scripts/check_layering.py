#!/usr/bin/env python3
"""Checks that the rooms know only what they may know.

A room is a folder whose CMakeLists.txt says velo_room(NAME SOURCES ... DEPENDS ... LIBRARIES ...). It may include its
own files, those of the rooms that it names, the standard library and fmt, and nothing else; a room of the program
also the system's headers and those of the libraries that it names. It includes something of every room that it names,
and of every room whose namespace it uses, so that nothing comes along with another room's headers. Rooms of the
program and of the plugin are known to their own kind only. Around the rooms stand areas with rules of their own, see
AREAS. Every file lies in a room or an area, and a CMakeLists.txt names every .cpp file. No two headers define a class of
one name in one namespace: a linker takes one's functions for the other's without a word. Prints FILE:LINE of each
violation; the exit status is 1 when there is one.

usage: check_layering.py [ROOT]
"""

import functools
import os
import pathlib
import re
import sys

# The folders of the program and of the plugin. Only rooms below them and areas that say so know their rooms.
PROGRAM = "agent"
PLUGIN = "VeloAcl"
# Files of the program that lie in none of its rooms.
OUTSIDE_ITS_ROOMS = {"agent/main.cpp"}

# Areas that are not rooms: what they may include beside the standard library. "rooms" is any room but those of the
# program and of the plugin; "any" is every library there is. Tests, benches and fuzzers mirror the rooms and look into
# all of them.
AREAS = {
    PROGRAM: {"rooms", PROGRAM, "any"},
    "cmake": {"cmake", "any"},
    "examples": {"rooms", "examples", "tests/support", "any"},
    "tests": {"rooms", "VeloAcl", "agent", "examples", "tests", "any"},
    "bench": {"rooms", "VeloAcl", "agent", "tests", "bench", "any"},
    "fuzz": {"rooms", "VeloAcl", "agent", "tests", "fuzz", "any"},
}

# What single rooms may use beyond the standard library, of the system or made by the build.
ALLOWED_SYSTEM_HEADERS = {"agent-core": {"velo-version.h"}, "Plugin": {"dlfcn.h", "velo-interface-version.h"}, "Classify": {"immintrin.h"}}

# The system's headers, which every room of the program may include: by how their names begin, and by their names.
SYSTEM_PREFIXES = ("arpa/", "linux/", "net/", "netinet/", "sys/")
SYSTEM_HEADERS = set("dirent.h dlfcn.h fcntl.h ifaddrs.h malloc.h poll.h pwd.h sched.h signal.h termios.h unistd.h".split())

# All other foreign libraries, which a room of the program has to name, by how names of their headers begin.
LIBRARY_HEADERS = {"bdd.h": "velo-bdd", "CLI/": "CLI11::CLI11", "curl/": "velo-curl", "libxml/": "PkgConfig::LIBXML2", "libyang/": "velo-yang", "nlohmann/": "nlohmann_json::nlohmann_json", "pcap": "PkgConfig::PCAP", "prometheus/": "prometheus-cpp::pull", "rte_": "velo-dpdk",
                   "sqlite3": "PkgConfig::SQLITE", "zlib.h": "velo-zlib", "zstd.h": "velo-zstd"}

STANDARD_HEADERS = set(
    """algorithm any array atomic barrier bit bitset cassert cctype cerrno cfenv cfloat charconv chrono cinttypes
    climits clocale cmath codecvt compare complex concepts condition_variable coroutine csetjmp csignal cstdarg
    cstddef cstdint cstdio cstdlib cstring ctime cuchar cwchar cwctype deque exception execution filesystem format
    forward_list fstream functional future initializer_list iomanip ios iosfwd iostream istream iterator latch
    limits list locale map memory memory_resource mutex new numbers numeric optional ostream queue random ranges
    ratio regex scoped_allocator semaphore set shared_mutex source_location span sstream stack stdexcept stop_token
    streambuf string string_view strstream syncstream system_error thread tuple type_traits typeindex typeinfo
    unordered_map unordered_set utility valarray variant vector version""".split()
)

# The rooms whose namespaces are not called like them.
NAMESPACES = {"AclAgent": "Acl", "Config": "agent-config", "Models": "agent-models", "Proof": "agent-proof"}
# Within their own kind of rooms these names may mean something else.
PROGRAM_NAMESPACES = {"Config"}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*(?:include|include_next|import)[ \t]*([<"])([^>"\n]+)[>"]', re.MULTILINE)
BLOCK_COMMENT = re.compile(r"/\*.*?\*/", re.DOTALL)
LINE_COMMENT = re.compile(r"//.*")
TEXT = re.compile(r'"(?:\\.|[^"\\\n])*"')
VARIABLE = re.compile(r"^\$\{\w+\}/")
NAMESPACE = re.compile(r"\bnamespace [\w:]+")
# Within Velo, Counter belongs to two rooms, and VeloAcl to the plugin.
USE = re.compile(r"(?<![\w:.>])(?:::)?([A-Z]\w*)::(?!(?<=Velo::)(?:Counter|VeloAcl)\b)\w")
# Both stand at the beginning of a line. Classes of another class, and specialisations, have names of more parts.
OPENED = re.compile(r"^(?:inline )?namespace ([\w:]+) \{", re.MULTILINE)
CLASS = re.compile(r"^(?:class|struct|union)\s+(?:\[\[[^\]]*\]\]\s*)?(\w+)\b(?!\s*(?:::|<))\s*(?:final\s*)?(?::[^;{]*)?\{", re.MULTILINE)
WORD = re.compile(r"[^\s()]+")
ROOM = re.compile(r"^[ \t]*velo_room\s*\(([^)]*)\)", re.MULTILINE)
HEADER_SUFFIXES = {".h", ".hpp", ".hh", ".hxx", ".inc"}
SOURCE_SUFFIXES = HEADER_SUFFIXES | {".cpp", ".cc", ".cxx", ".c"}


@functools.cache
def scanned(text):
    """What a source includes, as (quote, name, line), the namespaces that it uses, as (name, line) where each stands
    first, and the classes that it defines in namespaces, as (name, line). Kept, because the test of this file has the same tree checked many times."""
    # The text without block comments; lines keep their numbers.
    text = BLOCK_COMMENT.sub(lambda c: "\n" * c.group().count("\n"), text)
    # The blanks in front of the `#` belong to its line.
    includes = [(m.group(1), m.group(2), text.count("\n", 0, m.start(1)) + 1) for m in INCLUDE.finditer(text)]
    text = LINE_COMMENT.sub("", TEXT.sub('""', text))
    classes = []
    for match in CLASS.finditer(text):
        spaces = OPENED.findall(text, 0, match.start())
        classes.append(("::".join([*spaces[-1:], match.group(1)]), text.count("\n", 0, match.start()) + 1))
    text = NAMESPACE.sub("", text)
    uses = {}
    for match in USE.finditer(text):
        if match.group(1) not in uses:
            uses[match.group(1)] = text.count("\n", 0, match.start()) + 1
    return includes, list(uses.items()), classes


@functools.cache
def joined(folder, name):
    """The path of a name in a folder, without detours."""
    return pathlib.Path(os.path.normpath(os.path.join(folder, name)))


class Room:
    def __init__(self, name, folder, lists, place):
        self.name, self.folder, self.place = name, folder, place
        self.depends, self.libraries = lists["DEPENDS"], lists["LIBRARIES"]
        kind = folder.parts[0]
        self.kind = kind if kind in {PROGRAM, PLUGIN} else None  # who beside its own kind may not know it
        self.in_program = kind == PROGRAM


class Tree:
    """The files of one project tree and what is wrong with them. Paths are relative to its root."""

    def __init__(self, root):
        self.root = root
        self.violations = []
        self.rooms = {}
        self.files = set(self.all_files())
        self.named = set(self.all_named())
        self.sources = sorted(path for path in self.files if path.suffix in SOURCE_SUFFIXES)
        self.scans = {path: scanned((root / path).read_text(errors="replace")) for path in self.sources}
        for path in sorted(self.files):
            if path.name == "CMakeLists.txt":
                self.read_rooms(path)
        self.room_in = {room.folder: room for room in self.rooms.values()}
        self.room_of = functools.cache(self.find_room_of)

    def all_files(self):
        for folder, folders, names in os.walk(self.root):
            if folder == str(self.root):
                # The build folder and hidden ones hold no sources of ours.
                folders[:] = [name for name in folders if name != "build" and not name.startswith(".")]
            for name in names:
                yield pathlib.Path(folder, name).relative_to(self.root)

    def complain(self, path, line, text):
        self.violations.append((str(path), line, text))

    def read_rooms(self, path):
        text = re.sub(r"#.*", "", (self.root / path).read_text())
        for match in ROOM.finditer(text):
            line = text.count("\n", 0, match.start()) + 1
            words = match.group(1).split()
            name, lists, keyword = words[0], {"SOURCES": [], "DEPENDS": [], "LIBRARIES": []}, None
            for word in words[1:]:
                if word in lists:
                    keyword = word
                else:
                    lists[keyword].append(word)
            if name in self.rooms:
                self.complain(path, line, f"a second room of the name {name}")
                continue
            self.rooms[name] = Room(name, path.parent, lists, (path, line))

    def check_rooms(self):
        if not self.rooms:
            self.complain("CMakeLists.txt", 1, "no velo_room() in this tree")
        for room in self.rooms.values():
            for name in room.depends:
                if name not in self.rooms:
                    self.complain(*room.place, f"room {room.name} depends on {name}, which is no room")
                elif self.rooms[name].kind not in {None, room.kind}:
                    whose = "program" if self.rooms[name].in_program else "plugin"
                    self.complain(*room.place, f"room {room.name} depends on {name}, which is the {whose}'s")
        self.check_cycles()

    def check_cycles(self):
        done, path = set(), []

        def visit(name):
            if name in path:
                cycle = path[path.index(name) :] + [name]
                self.complain(*self.rooms[name].place, "rooms in a circle: " + " -> ".join(cycle))
            elif name in self.rooms and name not in done:
                path.append(name)
                for other in self.rooms[name].depends:
                    visit(other)
                path.pop()
                done.add(name)

        for name in self.rooms:
            visit(name)

    def find_room_of(self, path):
        """The innermost room whose folder holds the file."""
        while path.name:
            path = path.parent
            if path in self.room_in:
                return self.room_in[path]
        return None

    def target(self, path, quote, name):
        """The file of this tree that an include means, as the compiler looks for it; None for another's."""
        for base in [path.parent] * (quote == '"') + ["platform", "."]:
            candidate = joined(base, name)
            if candidate in self.files:
                return candidate
        return None

    def check_places(self):
        for path in self.sources:
            room, area = self.room_of(path), path.parts[0]
            # What no build compiles, nobody would see break.
            compiled = path.suffix in HEADER_SUFFIXES or self.is_named(path)
            if room:
                if not compiled:
                    self.complain(path, 1, f"no source of room {room.name}, by its CMakeLists.txt")
            elif area not in AREAS or len(path.parts) == 1:
                self.complain(path, 1, f"{area if len(path.parts) > 1 else '.'}/ is neither a room nor a known area")
            elif area == PROGRAM and str(path) not in OUTSIDE_ITS_ROOMS:
                self.complain(path, 1, f"{path.parent}/ is no room of the program")
            elif not compiled:
                self.complain(path, 1, "no CMakeLists.txt names this source")

    def is_named(self, path):
        """Whether a text of CMake names the file."""
        return path in self.named

    def all_named(self):
        """The files that are named in the texts of CMake; folders that stand in variables are the root."""
        for path in self.files:
            if path.name == "CMakeLists.txt" or path.suffix == ".cmake":
                for word in WORD.findall(re.sub(r"#.*", "", (self.root / path).read_text())):
                    base, name = (".", VARIABLE.sub("", word)) if VARIABLE.match(word) else (path.parent, word)
                    yield joined(base, name)

    def check_includes(self):
        for path, (includes, _, _) in self.scans.items():
            for quote, name, line in includes:
                problem = self.problem(path, quote, name)
                if problem:
                    self.complain(path, line, f"{problem}: {quote}{name}")

    def check_uses(self):
        """What comes along with the headers of another room, and what is named in vain."""
        included = {room.name: set() for room in self.rooms.values()}
        used = {room.name: {} for room in self.rooms.values()}  # by name of the other room: the first place
        for path, (includes, uses, _) in self.scans.items():
            room = self.room_of(path)
            if not room:
                continue
            for quote, name, _ in includes:
                target = self.target(path, quote, name)
                if target and self.room_of(target):
                    included[room.name].add(self.room_of(target).name)
            for space, line in uses:
                other = self.room_named(room, space)
                if other and other != room.name and other not in used[room.name]:
                    used[room.name][other] = (path, line)
        for room in self.rooms.values():
            for other, place in sorted(used[room.name].items()):
                if other not in room.depends:
                    self.complain(*place, f"room {room.name} uses room {other}, which its DEPENDS does not name")
            for other in room.depends:
                known = other in self.rooms and other != room.name and self.rooms[other].kind in {None, room.kind}
                if known and other not in included[room.name]:
                    self.complain(*room.place, f"room {room.name} includes nothing of {other}, which its DEPENDS names")

    def check_classes(self):
        first = {}
        for path, (_, _, classes) in self.scans.items():
            if path.suffix not in HEADER_SUFFIXES:
                continue
            for name, line in classes:
                other = first.setdefault(name, path)
                if other != path:
                    self.complain(path, line, f"{name} is a class of {other}, too")

    def room_named(self, room, space):
        """The room that a namespace belongs to, as code of `room` says it; None if it is no room's."""
        if space in PROGRAM_NAMESPACES and not room.in_program:
            return None
        other = NAMESPACES.get(space, space)
        return other if other in self.rooms else None

    def problem(self, path, quote, name):
        target = self.target(path, quote, name)
        room, area = self.room_of(path), path.parts[0]
        if target is None:
            return self.external_problem(room, area, name)
        target_room, target_area = self.room_of(target), target.parts[0]
        if room:
            if not target_room:
                return f"room {room.name} includes {target_area}/, which is above all rooms"
            if target_room is not room and target_room.name not in room.depends:
                return f"room {room.name} includes room {target_room.name}, which its DEPENDS does not name"
            return None
        allowed = AREAS.get(area)
        if allowed is None:
            return None  # which is a violation of its own
        if target_room and not target_room.kind:
            return None if "rooms" in allowed else f"{area}/ includes room {target_room.name}"
        if any(str(target).startswith(place + "/") for place in allowed):
            return None
        return f"{area}/ includes {target_area}/"

    def external_problem(self, room, area, name):
        if name in STANDARD_HEADERS:
            return None
        if room:
            if name.startswith("fmt/") or name in ALLOWED_SYSTEM_HEADERS.get(room.name, set()):
                return None
            if room.in_program:
                if name.startswith(SYSTEM_PREFIXES) or name in SYSTEM_HEADERS:
                    return None
                library = next((l for begin, l in LIBRARY_HEADERS.items() if name.startswith(begin)), None)
                if library in room.libraries:
                    return None
                if library is None:
                    return f"room {room.name} includes a library that scripts/check_layering.py does not know"
                return f"room {room.name} includes {library}, which its LIBRARIES does not name"
            return f"room {room.name} includes what is neither the standard library nor fmt"
        allowed = AREAS.get(area)
        if allowed is None:
            return None
        if "any" in allowed or ("fmt" in allowed and name.startswith("fmt/")):
            return None
        return f"{area}/ includes what is neither the standard library nor fmt"


def check(root):
    """All violations in the tree at root, as (path, line, text), in order."""
    tree = Tree(pathlib.Path(root).resolve())
    tree.check_rooms()
    tree.check_places()
    tree.check_includes()
    tree.check_uses()
    tree.check_classes()
    return sorted(tree.violations)


def main(arguments, usage, violations_of):
    """What a check of a tree does on the command line; violations_of(root) gives (path, line, text) each."""
    if len(arguments) > 2 or any(a.startswith("-") for a in arguments[1:]):
        print(usage.strip().splitlines()[-1], file=sys.stderr)
        return 2
    root = pathlib.Path(arguments[1]) if len(arguments) == 2 else pathlib.Path(__file__).resolve().parent.parent
    violations = violations_of(root)
    for path, line, text in violations:
        print(f"{path}:{line}: {text}")
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv, __doc__, check))
