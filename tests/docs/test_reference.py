"""Doxygen's pages of the public headers: every header is in them, and Doxygen has nothing to say."""

import os
import re
import shutil
import subprocess
import tempfile
import unittest

import markdown


class Reference(unittest.TestCase):
    def test_every_public_header_is_in_it(self):
        headers = {os.path.relpath(header, markdown.ROOT)
                   for header in os.environ["PELORIK_PUBLIC_HEADERS"].split(":")}
        settings = markdown.read("docs/Doxyfile").replace("\\\n", " ")
        listed = set(re.search("^INPUT *= (.*)$", settings, re.M).group(1).split())
        self.assertEqual({name for name in listed if name.endswith(".h")},
                         headers | {"pelorik/export.h"})

    @unittest.skipUnless(shutil.which("doxygen"), "needs doxygen")
    def test_doxygen_warns_of_nothing_and_knows_every_file(self):
        with tempfile.TemporaryDirectory() as folder:
            settings = markdown.read("docs/Doxyfile") + "OUTPUT_DIRECTORY = %s\n" % folder
            done = subprocess.run(["doxygen", "-"], input=settings, cwd=markdown.ROOT, check=False,
                                  capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            with open(os.path.join(folder, "html", "hash_8h.html"), encoding="utf-8") as page:
                self.assertIn("createHashFactory", page.read())


if __name__ == "__main__":
    unittest.main()
