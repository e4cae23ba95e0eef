"""What the tests take out of the documentation's pages."""

import os

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def read(name):
    with open(os.path.join(ROOT, name), encoding="utf-8") as file:
        return file.read()


def blocks(text):
    """The fenced blocks of a page as (kind, content, number of the line where the content begins)."""
    found, kind, begin = [], None, 0
    lines = text.split("\n")
    for number, line in enumerate(lines):
        if not line.startswith("```"):
            continue
        if kind is None:
            kind, begin = line[3:], number + 1
        else:
            content = "".join(inner + "\n" for inner in lines[begin:number])
            found.append((kind, content, begin + 1))
            kind = None
    if kind is not None:
        raise ValueError("the block of line %d has no end" % begin)
    return found


def programs(text):
    """Every C++ block with the text block behind it, which is what the program prints."""
    all_blocks = blocks(text)
    found = []
    for place, (kind, program, line) in enumerate(all_blocks):
        if kind == "cpp":
            following = all_blocks[place + 1] if place + 1 < len(all_blocks) else ("", "", 0)
            if following[0] != "text":
                raise ValueError("nothing says what the program of line %d prints" % line)
            found.append((line, program, following[1]))
    return found
