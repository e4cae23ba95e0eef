"""The page of messages against the sources: every text that a program may show stands on the page, and
every message on the page is in the sources or is the system's."""

import glob
import os
import re
import subprocess
import unittest

import markdown

FOLDERS = ["checker", "cli", "config", "digest", "system", "text"]
LITERAL = r'"(?:[^"\\\n]|\\.)*"'

# The system's words for error numbers (strerror), and the names that they stand behind.
SYSTEM_WORDS = {"No such file or directory", "Permission denied", "Is a directory",
                "No space left on device"}

# Texts with blanks that are neither help nor messages.
NO_MESSAGES = {
    "pelorik: an interrupted list, which pelorik list --resume goes on from",
}


def squeezed(text):
    return re.sub(r"\s", "", text)


def help_texts():
    """All that --help prints, without white space, since it is wrapped there."""
    tool = os.environ["PELORIK"]

    def of(*words):
        return subprocess.run([tool, *words, "--help"], check=True, capture_output=True,
                              text=True).stdout

    def words_in(text, heading):
        return re.findall(r"^  (\S+)", text.split(heading)[1].split("\n\n")[0], re.M)

    pages = [of()]
    for command in words_in(pages[0], "Commands:\n"):
        page = of(command)
        pages.append(page)
        if "\nVerbs:\n" in page:
            pages += [of(command, verb) for verb in words_in(page, "\nVerbs:\n")]
    return squeezed("".join(pages))


def unescaped(match):
    return {"n": "\n", "r": "\r", "t": "\t"}.get(match.group(1), match.group(1))


def literals():
    """Every string literal of the sources, those beside each other joined, as (file, text)."""
    for folder in FOLDERS:
        for path in sorted(glob.glob(os.path.join(markdown.ROOT, folder, "**", "*.[ch]*"), recursive=True)):
            source = re.sub(r"^\s*//.*$|\s//[^\"\n]*$|^#include.*$|static_assert\([^;]*\);", "",
                            markdown.read(path), flags=re.M)
            for match in re.finditer(r"%s(?:\s*%s)*" % (LITERAL, LITERAL), source):
                pieces = re.findall(LITERAL, match.group(0))
                text = "".join(piece[1:-1] for piece in pieces)
                yield os.path.relpath(path, markdown.ROOT), re.sub(r"\\(.)", unescaped, text)


def is_words(text):
    return re.search(r"[a-z']\W* \W*[A-Za-z]", text.strip()) and "%s" not in text


def messages_of_page():
    """The code in the first column of every table that lists messages."""
    inside, found = False, []
    for line in markdown.read("docs/errors.md").split("\n"):
        if line.startswith("| message |"):
            inside = True
        elif not line.startswith("|"):
            inside = False
        elif inside and not line.startswith("|---"):
            found += [double or single for double, single
                      in re.findall(r"``(.+?)``|`([^`]+)`", line.split(" | ")[0])]
    return found


class Messages(unittest.TestCase):
    def test_every_text_of_the_sources_stands_on_the_page(self):
        known, helps = messages_of_page(), help_texts()
        looked_up = 0
        for path, text in literals():
            if not is_words(text) or squeezed(text) in helps:
                continue
            if text in NO_MESSAGES:
                continue
            looked_up += 1
            with self.subTest(file=path, text=text):
                self.assertTrue(any(text.strip() in message for message in known))
        self.assertGreater(looked_up, 100)

    def test_every_message_of_the_page_is_put_together_from_texts_of_the_sources(self):
        texts = {text.strip() for _, text in literals()} | SYSTEM_WORDS
        texts = sorted((text for text in texts if re.search("[A-Za-z<>-]{2}", text)), key=len)
        whole = re.compile(r"(?:%s|[ :;,.'\[\]()])*" % "|".join(map(re.escape, texts[::-1])))
        messages = messages_of_page()
        for message in messages:
            for piece in re.split(r"\{[^}]*\}", message):
                with self.subTest(message=message, piece=piece):
                    self.assertTrue(whole.fullmatch(piece))
        self.assertGreater(len(messages), 100)


if __name__ == "__main__":
    unittest.main()
