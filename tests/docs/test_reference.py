"""Doxygen's pages of the public headers: every header is in them, and Doxygen has nothing to say."""

import glob
import os
import re
import shutil
import subprocess
import tempfile
import unittest
import xml.etree.ElementTree

import markdown


def exported_names():
    """The last name of every exported function and variable, such as "ToStr", destructors excepted."""
    names = set()
    for line in markdown.read("packaging/exported-symbols.txt").splitlines():
        text = line.split("  ")[-1]
        if re.match("(vtable|typeinfo)", text) or "~" in text:
            continue
        while "<" in text and not re.search("operator *<", text):
            text = re.sub("<[^<>]*>", "", text)
        text = re.sub(r"\[abi:\w+\]", "", text)
        text = text.replace("operator()", "operator@").split("(")[0].replace("@", "()")
        name = text.replace("char const*", "const char*").split("::")[-1]
        names.add(name if name.startswith("operator") else name.split(" ")[-1])
    return names


def described_names(folder):
    """The names that Doxygen found with a comment; and those that override something that has one."""
    names = set()
    for path in glob.glob(os.path.join(folder, "xml", "*.xml")):
        for member in xml.etree.ElementTree.parse(path).iter("memberdef"):
            if member.findtext("briefdescription/para") is not None or \
                    member.find("reimplements") is not None:
                names.add(member.findtext("name").replace(" *", "*"))
    return names


class Reference(unittest.TestCase):
    def test_every_public_header_is_in_it(self):
        headers = {os.path.relpath(header, markdown.ROOT)
                   for header in os.environ["PELORIK_PUBLIC_HEADERS"].split(":")}
        settings = markdown.read("docs/Doxyfile").replace("\\\n", " ")
        listed = set(re.search("^INPUT *= (.*)$", settings, re.M).group(1).split())
        self.assertEqual({name for name in listed if name.endswith(".h")},
                         headers | {"pelorik/export.h"})

    @unittest.skipUnless(shutil.which("doxygen"), "needs doxygen")
    def test_doxygen_warns_of_nothing_and_describes_every_exported_name(self):
        with tempfile.TemporaryDirectory() as folder:
            settings = markdown.read("docs/Doxyfile") + "OUTPUT_DIRECTORY = %s\nGENERATE_XML = YES\n" % folder
            done = subprocess.run(["doxygen", "-"], input=settings, cwd=markdown.ROOT, check=False,
                                  capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            exported = exported_names()
            self.assertGreater(len(exported), 80)
            self.assertEqual(exported - described_names(folder), set())


if __name__ == "__main__":
    unittest.main()
