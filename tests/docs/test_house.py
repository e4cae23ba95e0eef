"""The includes of the sources against the arrows that docs/architecture.md allows, and the picture."""

import os
import re
import unittest

import house
import markdown

# Folders of the C library and the kernel. The library includes no other package's headers.
SYSTEM_FOLDERS = {"arpa", "linux", "net", "netinet", "sys"}


class House(unittest.TestCase):
    def test_every_include_names_a_file_of_the_house_from_its_root(self):
        files = set(house.files())
        self.assertGreater(len(files), 80)
        for file, included in house.includes():
            with self.subTest(file=file):
                self.assertIn(included, files)

    def test_arrows_point_only_where_they_may(self):
        for file, included in house.includes():
            with self.subTest(file=file, included=included):
                self.assertTrue(house.is_allowed(file, included))

    def test_the_library_includes_no_other_packages_headers(self):
        for file in house.files():
            for header in re.findall(r"^#include <(.*)/", markdown.read(file), re.M):
                if house.folder_of(file) != "cli":
                    with self.subTest(file=file):
                        self.assertIn(header, SYSTEM_FOLDERS)

    def test_no_two_headers_include_each_other(self):
        below = {}
        for file, included in house.includes():
            below.setdefault(file, set()).add(included)
        while below:  # takes away, again and again, what includes nothing that is left
            lowest = [file for file, included in below.items() if not included & set(below)]
            self.assertTrue(lowest, below)
            for file in lowest:
                del below[file]

    def test_every_public_unit_has_its_place(self):
        headers = {os.path.relpath(header, markdown.ROOT)
                   for header in os.environ["PELORIK_PUBLIC_HEADERS"].split(":")}
        self.assertEqual({house.stem(header) for header in headers}, set(house.UNITS))

    def test_the_picture_is_what_the_sources_say(self):
        """When this fails: tests/docs/house.py --write."""
        self.assertEqual(markdown.read("docs/house.svg"), house.picture())


class Rules(unittest.TestCase):
    """What the test above would refuse."""

    def test_arrows_that_are_not_allowed(self):
        for file, included in [("text/agstr.cpp", "digest/hash.h"),
                               ("checker/hashfile_checker.cpp", "digest/_md5.h"),
                               ("config/vpnxml.cpp", "digest/hash.h"),
                               ("digest/hash.cpp", "cli/process/error.h"),
                               ("cli/files/directory_walk.h", "digest/hex_text.h"),
                               ("digest/_md5.cpp", "digest/hash.h"),
                               ("system/net_interf.cpp", "system/netinterface.h"),
                               ("text/agstr.cpp", "text/base64.h")]:
            with self.subTest(file=file, included=included):
                self.assertFalse(house.is_allowed(file, included))


if __name__ == "__main__":
    unittest.main()
