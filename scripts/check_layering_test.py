#!/usr/bin/env python3
"""Plants one violation at a time in a copy of the tree and sees the checks of layers and of walks find it."""

import pathlib
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import check_layering  # noqa: E402
import check_walks  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent

# File, line that is put in front of it, what the complaint says, why it is one.
PLANTED = [
    ("platform/Kelp/Node.cpp", "#include <Zeb/Entity.h>", "room Kelp includes room Zeb", "a lower room looks up"),
    ("platform/Kelp/Node.cpp", '#include "../Zeb/Entity.h"', "room Kelp includes room Zeb", "so does a way around"),
    ("platform/Kelp/Node.cpp", "  #  include  <Zeb/Entity.h>", "room Kelp includes room Zeb", "however it is spaced"),
    ("platform/Velo/Pipeline.h", "#include <Acl/Model.h>", "room Velo includes room Acl", "the platform knows no lists"),
    ("platform/Velo/Pipeline.h", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "room Velo includes room VeloPlugin",
     "nor the plugin"),
    ("platform/Velo/Pipeline.h", "#include <agent/config/Model.h>", "room Velo includes room agent-config",
     "nor the program"),
    ("platform/CMakeLists.txt", "velo_room(Attic SOURCES a.cpp DEPENDS agent-config)", "which is the program's",
     "whatever they say"),
    ("platform/CMakeLists.txt", "velo_room(Attic SOURCES a.cpp DEPENDS VeloPlugin)", "which is the plugin's",
     "and no plugin"),
    ("Acl/Keys.cpp", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "room Acl includes room VeloPlugin",
     "the library knows no plugin"),
    ("agent/config/Reader.cpp", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "room agent-config includes room VeloPlugin",
     "the program finds the plugin by its path alone"),
    ("agent/main.cpp", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "agent/ includes VeloAcl/", "all of it"),
    ("VeloAcl/VeloPlugin/AclPlugin.cpp", "#include <agent/config/Model.h>", "room VeloPlugin includes room agent-config",
     "the plugin knows no program"),
    ("VeloAcl/VeloDpAclStatusSm/Walker.h", "#include <VeloAcl/VeloPlugin/AclPlugin.h>",
     "room VeloDpAclStatusSm includes room VeloPlugin", "the machine does not know who makes it"),
    ("VeloAcl/VeloPlugin/AclPlugin.cpp", "#include <pcap/pcap.h>", "neither the standard library nor fmt",
     "the plugin stands on the platform alone"),
    ("platform/Nimnet/Pkt.cpp", "#include <pcap/pcap.h>", "neither the standard library nor fmt", "so do the rooms"),
    ("platform/Kelp/Node.cpp", "#include <dlfcn.h>", "neither the standard library nor fmt",
     "only one room opens libraries"),
    ("platform/Kelp/Node.cpp", '#include "Nowhere.h"', "neither the standard library nor fmt",
     "a file that is not there belongs to nobody"),
    ("agent/core/Core.h", "#include <agent/control/ControlPlane.h>", "room agent-core includes room agent-control",
     "the program's rooms look down only"),
    ("agent/replay/Replay.cpp", "#include <agent/control/Request.h>", "room agent-replay includes room agent-control",
     "and only into those that they name"),
    ("agent/config/Reader.cpp", "#include <pcap/pcap.h>", "includes PkgConfig::PCAP",
     "a room of the program names its libraries"),
    ("agent/core/Core.cpp", "#include <sqlite3.h>", "includes PkgConfig::SQLITE", "all of them"),
    ("agent/config/Reader.cpp", "#include <expat.h>", "a library that scripts/check_layering.py does not know",
     "others have to be declared first"),
    ("agent/config/Reader.cpp", "inline int planted() { return Hive::planted; }", "room agent-config uses room Hive",
     "what is used is named, even if it comes along with other headers"),
    ("agent/ports/LivePort.cpp", "inline int planted() { return Config::planted; }",
     "room agent-ports uses room agent-config", "by whatever name"),
    ("platform/Kiv/CMakeLists.txt", "velo_room(Attic DEPENDS Kelp)", "room Attic includes nothing of Kelp",
     "what is named is used"),
    ("platform/CMakeLists.txt", "velo_room(Attic SOURCES a.cpp DEPENDS Nowhere)", "which is no room",
     "a dependency names a room"),
    ("platform/CMakeLists.txt", "velo_room(Attic SOURCES a.cpp DEPENDS PkgConfig::PCAP)", "which is no room",
     "and no foreign library"),
    ("platform/Velo/CMakeLists.txt", "velo_room(Kiv SOURCES a.cpp)", "a second room", "names are unique"),
    ("platform/CMakeLists.txt", "velo_room(Attic SOURCES a.cpp DEPENDS Attic)", "Attic -> Attic", "no circles"),
]

# Lines that are no violations, with the file that they are put in front of.
HARMLESS = [
    ("platform/Kelp/Node.cpp", "// #include <Zeb/Entity.h>", "a comment includes nothing"),
    ("platform/Kelp/Node.cpp", "/*\n#include <Zeb/Entity.h>\n*/", "nor does one of several lines"),
    ("platform/Kelp/Node.cpp", "#include <fmt/format.h>", "fmt is for everybody"),
    ("platform/Plugin/Loader.cpp", "#include <dlfcn.h>", "the loader opens libraries"),
    ("agent/ports/TapDevice.cpp", "#include <pcap/pcap.h>", "the program's rooms stand on what they name"),
    ("agent/config/Reader.cpp", "#include <sys/stat.h>", "and on the system"),
    ("agent/main.cpp", "#include <sqlite3.h>", "main stands on all of it"),
    ("platform/Kelp/Node.cpp", "// Zeb::Entity", "a comment uses nothing"),
    ("platform/Kelp/Node.cpp", 'constexpr const char* planted = "Zeb::Entity";', "nor does a text"),
    ("platform/Velo/Pipeline.h", "namespace Velo::VeloAcl { class Planted; }", "a namespace may be within another's"),
    ("Acl/Model.h", "inline int planted() { return Config::planted; }", "a class may be called like a namespace"),
    ("platform/Velo/CMakeLists.txt", "# velo_room(Kiv SOURCES a.cpp)", "a comment makes no room"),
    ("agent/ports/PortKinds.h", "namespace Agent {\nclass Gathering;\n}", "a class may be named where it is not defined"),
    ("agent/ports/PortKinds.h", "namespace Agent::Planted {\nclass Gathering {};\n}", "and be another namespace's"),
]

# Files that no room holds, or that their room does not compile, and what the complaint says.
NOWHERE = [
    ("attic/Old.cpp", "attic/ is neither a room nor a known area"),
    ("Old.h", "./ is neither a room nor a known area"),
    ("agent/Old.h", "agent/ is no room of the program"),
    ("agent/attic/Old.cpp", "agent/attic/ is no room of the program"),
    ("agent/core/Old.cxx", "no source of room agent-core, by its CMakeLists.txt"),
    ("agent/core/Old.c", "no source of room agent-core, by its CMakeLists.txt"),
    ("agent/Old.hh", "agent/ is no room of the program"),
    ("attic/Old.hxx", "attic/ is neither a room nor a known area"),
    ("agent/core/Old.cpp", "no source of room agent-core, by its CMakeLists.txt"),
    ("platform/Old.h", "platform/ is neither a room nor a known area"),
    ("VeloAcl/Old.cpp", "no source of room VeloAcl-order, by its CMakeLists.txt"),
    ("VeloAcl/VeloPlugin/Old.cpp", "no source of room VeloPlugin, by its CMakeLists.txt"),
    ("tests/Acl/Old.cpp", "no CMakeLists.txt names this source"),
    ("bench/classbench/Old.cpp", "no CMakeLists.txt names this source"),
    ("fuzz/Old.cpp", "no CMakeLists.txt names this source"),
    ("examples/Old.cpp", "no CMakeLists.txt names this source"),
]


# What is put in the place of what in ARCHITECTURE.md, and what the complaint says.
STRAYED = [
    ("`EventLoop::pollAll`", "`EventLoop::pollNone`", "agent/core has no EventLoop::pollNone"),
    ("`PacketRing::isFilled`", "`EventLoop::turn`", "agent/ports has no EventLoop::turn"),
    ("(`Keys.h`)", "", None),
    ("`CounterCache.h`", "`CounterPurse.h`", "VeloAcl/VeloPlugin has no CounterPurse.h"),
    ("| `agent/forward` | `Forwarder::receive`", "| `agent/backward` | `Forwarder::receive`", "no room agent/backward"),
    ("| `agent/replay` | its frames join", "| | its frames join", "room agent/replay is on no way"),
    ("| `platform/Plugin` | the plugin is", "| `platform/Plugin`, `Hive` | the plugin is", "both on a way and on neither"),
    ("| `agent/explain` | why a frame", "| why a frame", "room agent/explain has no row"),
    ("`platform/Kelp`, `MemSlab` |", "`platform/Kelp` |", "room platform/MemSlab has no row"),
    ("`platform/Kelp`, `MemSlab` |", "`platform/MemSlab`, `Kelp` |",
     "room platform/MemSlab stands above platform/Kelp, which it depends on"),
]


class CopyOfTheTree(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = pathlib.Path(holder.name) / "tree"
        skipped = shutil.ignore_patterns(".*", "build", "*.pcap")
        shutil.copytree(ROOT, self.root, ignore=skipped)


class CheckWalks(CopyOfTheTree):
    def test_a_name_that_is_not_there_is_found(self):
        document = self.root / "ARCHITECTURE.md"
        text = document.read_text()
        for there, instead, complaint in STRAYED:
            with self.subTest(there=there, instead=instead):
                self.assertEqual(text.count(there), 1)
                document.write_text(text.replace(there, instead))
                found = [text for _, _, text in check_walks.check(self.root)]
                self.assertEqual(len(found), 0 if complaint is None else 1, found)
                if complaint:
                    self.assertIn(complaint, found[0])


    def test_a_list_of_rooms_out_of_order_is_found(self):
        rooms = self.root / "platform/CMakeLists.txt"
        rooms.write_text(rooms.read_text().replace("Kelp MemSlab", "MemSlab Kelp"))
        complaint = "room platform/MemSlab stands above platform/Kelp, which it depends on"
        self.assertEqual([(file, text) for file, _, text in check_walks.check(self.root)],
                         [("platform/CMakeLists.txt", complaint)])


class CheckLayering(CopyOfTheTree):
    def after(self, file, line):
        """What the check says once the line stands in front of the file, which is put back afterwards."""
        path = self.root / file
        before = path.read_text()
        path.write_text(line + "\n" + before)
        try:
            return check_layering.check(self.root)
        finally:
            path.write_text(before)

    def test_the_tree_itself_is_clean(self):
        self.assertEqual(check_layering.check(self.root), [])

    def test_a_planted_violation_is_found_at_its_place(self):
        for file, line, complaint, why in PLANTED:
            with self.subTest(why, file=file, line=line):
                found = self.after(file, line)
                self.assertEqual(len(found), 1, found)
                self.assertIn(complaint, found[0][2])
                self.assertEqual(found[0][:2], (file, 1))

    def test_a_second_class_of_a_name_is_found(self):
        for planted in ("class Gathering {", "class Gathering final : public Planted {", "struct Gathering : Planted {"):
            with self.subTest(planted):
                found = self.after("agent/ports/PortKinds.h", "namespace Agent {\n" + planted + "};\n}")
                complaint = "Agent::Gathering is a class of agent/metrics/Gathering.h, too"
                self.assertEqual(found, [("agent/ports/PortKinds.h", 2, complaint)])

    def test_harmless_lines_pass(self):
        for file, line, why in HARMLESS:
            with self.subTest(why, file=file, line=line):
                self.assertEqual(self.after(file, line), [])

    def test_a_circle_through_several_rooms_is_found(self):
        kelp = self.root / "platform/Kelp/CMakeLists.txt"
        kelp.write_text("velo_room(Kelp SOURCES Node.cpp String.cpp DEPENDS MemSlab)\n")
        texts = [text for _, _, text in check_layering.check(self.root)]
        self.assertIn("rooms in a circle: Kelp -> MemSlab -> Kelp", texts)

    def test_a_file_that_lies_in_no_room_is_refused(self):
        for file, complaint in NOWHERE:
            with self.subTest(file=file):
                path = self.root / file
                path.parent.mkdir(exist_ok=True)
                path.write_text("int nothing;\n")
                self.assertEqual(check_layering.check(self.root), [(file, 1, complaint)])
                path.unlink()

    def test_a_tree_without_rooms_is_no_success(self):
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(len(check_layering.check(empty)), 1)


if __name__ == "__main__":
    unittest.main()
