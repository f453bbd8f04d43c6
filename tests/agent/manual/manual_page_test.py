#!/usr/bin/env python3
"""Tests that scripts/manual_page.py loses nothing of a document on its way into a manual page.

The exit status is 77 where there is no groff.
"""

import os
import re
import shutil
import subprocess
import sys
import unittest

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../..")

SAMPLE = r"""# Title

Words with `code`, **weight** and *stress*, a [link](there.md) and a dash-word.

.a paragraph that looks like a request

- one
  goes on
- two

    typed  as it is
    .too

## Section

| statement | what it is |
|---|---|
| `a\|b` | either |

### Part

| number | names |
|---|---|
| 1 | `icmp` |
| 17 | `udp` `u` |
"""


def page(path):
    return subprocess.run([sys.executable, f"{ROOT}/scripts/manual_page.py", path, "name", "5", "what it is"],
                          check=True, text=True, stdout=subprocess.PIPE).stdout


def printed(roff):
    """What people see of a page, in a line as long as is needed, and what groff complains of."""
    done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-rLL=2000n", "-P-c", "-P-b", "-P-u"], check=True, text=True, input=roff,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    return done.stdout, done.stderr


def words(markdown):
    """What is in a document beside its marks."""
    found = []
    for line in markdown.splitlines()[1:]:
        if re.fullmatch(r"[|-]+", line) or line.startswith(("| statement", "| part", "| number", "| port", "| type")):
            continue
        if not line.startswith("    "):
            line = re.sub(r"\[([^]]*)\]\([^)]*\)", r"\1", re.sub(r"^(#+|- )", "", line))
            line = re.sub(r"\*+(?=\S)|(?<=\S)\*+", "", line.replace("`", ""))
            line = line.replace("\\|", "\0").replace("|", " ").replace("\0", "|") if line.startswith("|") else line
        found += line.split()
    return found


class ManualPage(unittest.TestCase):
    def body(self, markdown):
        path = os.path.join(self.folder, "document.md")
        with open(path, "w", encoding="utf-8") as file:
            file.write(markdown)
        text, complaints = printed(page(path))
        self.assertEqual(complaints, "")
        return text[text.index("DESCRIPTION") + len("DESCRIPTION"):text.index("SEE ALSO")]

    def setUp(self):
        self.folder = os.environ.get("TMPDIR", "/tmp") + f"/velo-manual-{os.getpid()}"
        os.mkdir(self.folder)
        self.addCleanup(shutil.rmtree, self.folder)

    def test_a_document_looks_like_a_page(self):
        lines = [line.rstrip() for line in self.body(SAMPLE).splitlines() if line.strip()]
        self.assertEqual(lines, [
            "       Words with code, weight and stress, a link and a dash-word.",
            "       .a paragraph that looks like a request",
            "       • one goes on", "       • two", "          typed  as it is", "          .too", "SECTION", "       a|b    either",
            "   Part", "       1   icmp", "       17  udp u"])

    def test_every_word_of_the_language_is_there(self):
        with open(f"{ROOT}/docs/configuration.md", encoding="utf-8") as file:
            document = file.read()
        seen = [word for word in self.body(document).split() if word != "•"]
        self.assertGreater(len(seen), 2000)
        self.assertEqual([word.lower() for word in seen], [word.lower() for word in words(document)])


if __name__ == "__main__":
    if not shutil.which("groff"):
        print("there is no groff")
        sys.exit(77)
    unittest.main()
