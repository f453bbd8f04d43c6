#!/usr/bin/env python3
"""Plants one violation at a time in a copy of the tree and sees the layering check find it."""

import pathlib
import shutil
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import check_layering  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parent.parent

# File, line that is put in front of it, what the complaint says, why it is one.
PLANTED = [
    ("platform/Kelp/Node.cpp", "#include <Zeb/Entity.h>", "room Kelp includes room Zeb", "a lower room looks up"),
    ("platform/Kelp/Node.cpp", '#include "../Zeb/Entity.h"', "room Kelp includes room Zeb", "so does a way around"),
    ("platform/Kelp/Node.cpp", "  #  include  <Zeb/Entity.h>", "room Kelp includes room Zeb", "however it is spaced"),
    ("platform/Velo/Pipeline.h", "#include <Acl/Model.h>", "room Velo includes room Acl", "the platform knows no lists"),
    ("platform/Velo/Pipeline.h", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "includes VeloAcl/", "nor the plugin"),
    ("platform/Velo/Pipeline.h", "#include <agent/config/Model.h>", "includes agent/", "nor the program"),
    ("Acl/Keys.cpp", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "includes VeloAcl/", "the library knows no plugin"),
    ("agent/config/Reader.cpp", "#include <VeloAcl/VeloPlugin/AclPlugin.h>", "agent/ includes VeloAcl/",
     "the program finds the plugin by its path alone"),
    ("VeloAcl/VeloPlugin/AclPlugin.cpp", "#include <agent/config/Model.h>", "VeloAcl/ includes agent/",
     "the plugin knows no program"),
    ("VeloAcl/VeloPlugin/AclPlugin.cpp", "#include <pcap/pcap.h>", "neither the standard library nor fmt",
     "the plugin stands on the platform alone"),
    ("platform/Nimnet/Pkt.cpp", "#include <pcap/pcap.h>", "neither the standard library nor fmt", "so do the rooms"),
    ("platform/Kelp/Node.cpp", "#include <dlfcn.h>", "neither the standard library nor fmt",
     "only one room opens libraries"),
    ("platform/Kelp/Node.cpp", '#include "Nowhere.h"', "neither the standard library nor fmt",
     "a file that is not there belongs to nobody"),
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
    ("agent/config/Reader.cpp", "#include <pcap/pcap.h>", "the program stands on what it likes"),
    ("platform/Velo/CMakeLists.txt", "# velo_room(Kiv SOURCES a.cpp)", "a comment makes no room"),
]


class CheckLayering(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = pathlib.Path(holder.name) / "tree"
        skipped = shutil.ignore_patterns(".*", "build", "*.pcap")
        shutil.copytree(ROOT, self.root, ignore=skipped)

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

    def test_harmless_lines_pass(self):
        for file, line, why in HARMLESS:
            with self.subTest(why, file=file, line=line):
                self.assertEqual(self.after(file, line), [])

    def test_a_circle_through_several_rooms_is_found(self):
        kelp = self.root / "platform/Kelp/CMakeLists.txt"
        kelp.write_text("velo_room(Kelp SOURCES Node.cpp DEPENDS MemSlab)\n")
        texts = [text for _, _, text in check_layering.check(self.root)]
        self.assertEqual(texts, ["rooms in a circle: Kelp -> MemSlab -> Kelp"])

    def test_a_folder_that_nobody_knows_is_refused(self):
        folder = self.root / "attic"
        folder.mkdir()
        (folder / "Old.cpp").write_text("#include <Kelp/Ptr.h>\n")
        found = check_layering.check(self.root)
        self.assertEqual(found, [("attic/Old.cpp", 1, "attic/ is neither a room nor a known area: <Kelp/Ptr.h")])

    def test_a_tree_without_rooms_is_no_success(self):
        with tempfile.TemporaryDirectory() as empty:
            self.assertEqual(len(check_layering.check(empty)), 1)


if __name__ == "__main__":
    unittest.main()
