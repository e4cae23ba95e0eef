"""The README's figures against the page of measurements, and the links of all pages."""

import glob
import os
import re
import subprocess
import unittest

import markdown


def measured():
    """docs/performance.md's figures by race and who."""
    rows = re.findall(r"^\| (\S+) \| (\S+) \| ([\d.]+) \(", markdown.read("docs/performance.md"), re.M)
    return {(race, who): float(figure) for race, who, figure in rows}


def anchors(text):
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)$", text, re.M)}


class Pages(unittest.TestCase):
    def test_the_figures_of_the_readme_were_reached_and_are_not_far_below(self):
        figures = measured()
        rows = re.findall(r"^\| (\w+/\d+) \| ([\d.]+) \| ([\d.]+) \|", markdown.read("README.md"), re.M)
        self.assertEqual(len(rows), 3)
        for race, fast, portable in rows:
            for who, claimed in (("pelorik-avx512", fast), ("pelorik-portable", portable)):
                with self.subTest(race=race, who=who):
                    self.assertLessEqual(float(claimed), figures[race, who])
                    self.assertGreater(float(claimed), figures[race, who] * 0.75)

    def test_the_readme_names_every_command(self):
        overview = subprocess.run([os.environ["PELORIK"], "--help"], check=True,
                                  capture_output=True, text=True).stdout
        names = re.findall(r"^  (\w+) ", overview.split("Commands:")[1].split("\n\n")[0], re.M)
        self.assertGreater(len(names), 10)
        for name in names:
            self.assertIn("pelorik " + name, markdown.read("README.md"))

    def test_every_link_leads_somewhere(self):
        pages = ["README.md", "CONTRIBUTING.md", "SECURITY.md", "CHANGELOG.md"] + [
            os.path.relpath(page, markdown.ROOT)
            for page in glob.glob(os.path.join(markdown.ROOT, "docs", "*.md"))]
        for page in pages:
            text = re.sub(r"^```.*?^```", "", markdown.read(page), flags=re.M | re.S)
            for link in re.findall(r"\]\(([^)]*)\)", text):
                if link.startswith("http"):
                    continue
                target, _, anchor = link.partition("#")
                file = os.path.normpath(os.path.join(os.path.dirname(page), target)) if target else page
                with self.subTest(page=page, link=link):
                    self.assertTrue(os.path.exists(os.path.join(markdown.ROOT, file)))
                    if anchor:
                        self.assertIn(anchor, anchors(markdown.read(file)))


if __name__ == "__main__":
    unittest.main()
