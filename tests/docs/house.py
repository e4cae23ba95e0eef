"""The house: who includes whom, read from the sources, and a picture of it.

    house.py --write    draws docs/house.svg anew
"""

import glob
import os
import re
import sys

import markdown

# Whose headers the files of a folder may include beside the folder's own and pelorik/export.h. None stands
# for every public header.
ALLOWED = {
    "pelorik": set(),
    "digest": set(),
    "checker": {"digest/hash.h"},
    "text": set(),
    "config": {"digest/_md5.h"},
    "system": set(),
    "cli": None,
}

# Which unit may include which other unit of its folder.
ALLOWED_WITHIN = {
    ("digest/hash", "digest/_md5"),
    ("digest/hash", "digest/gost3411"),
    ("digest/hash", "digest/gost34_11_2012_i"),
    ("digest/gost34_11_2012_i", "digest/gost34_11_2012"),
    ("system/netinterface", "system/net_interf"),
}

EXPORT = "pelorik/export.h"

# x, y, width and height of the folders and the public units. A unit without a place cannot be drawn.
FOLDERS = {
    "cli": (20, 20, 860, 76),
    "checker": (20, 170, 180, 90),
    "config": (250, 170, 210, 90),
    "text": (490, 170, 150, 90),
    "system": (660, 170, 220, 130),
    "digest": (20, 350, 620, 150),
}
UNITS = {
    "checker/hashfile_checker": (35, 210, 150, 30),
    "config/vpnxml": (265, 210, 80, 30),
    "config/inifile": (365, 210, 80, 30),
    "text/agstr": (505, 210, 55, 30),
    "text/base64": (570, 210, 60, 30),
    "system/netinterface": (675, 210, 100, 30),
    "system/net_interf": (675, 258, 100, 30),
    "system/scchecker": (785, 210, 82, 30),
    "digest/hash": (90, 390, 140, 30),
    "digest/_md5": (275, 390, 80, 30),
    "digest/gost3411": (35, 450, 90, 30),
    "digest/gost34_11_2012_i": (160, 450, 180, 30),
    "digest/gost34_11_2012": (385, 450, 150, 30),
}
# Where an arrow from a folder meets a unit, when that is not the unit's middle.
MEETS = {
    ("cli", "digest/hash"): 222,
    ("checker", "digest/hash"): 130,
    ("cli", "config/vpnxml"): 325,
    ("cli", "system/netinterface"): 750,
}


def files():
    return sorted(os.path.relpath(path, markdown.ROOT) for folder in ALLOWED
                  for path in glob.glob(os.path.join(markdown.ROOT, folder, "**"), recursive=True)
                  if path.endswith((".h", ".cpp")))


def includes():
    """Every `#include "..."` of the house as (file, what it includes)."""
    return [(file, included) for file in files()
            for included in re.findall(r'^\s*#\s*include\s+"([^"]*)"', markdown.read(file), re.M)]


def folder_of(file):
    return file.split("/")[0]


def stem(file):
    return os.path.splitext(file)[0]


def is_allowed(file, included):
    if included == EXPORT:
        return True
    folder = folder_of(file)
    if folder_of(included) != folder:
        allowed = ALLOWED[folder]
        return stem(included) in UNITS if allowed is None else included in allowed
    if folder == "cli" or stem(file) not in UNITS or stem(included) not in UNITS:
        return True
    return stem(file) == stem(included) or (stem(file), stem(included)) in ALLOWED_WITHIN


def arrows():
    """Between units of one folder, and from folders to units of others."""
    found = set()
    for file, included in includes():
        if included == EXPORT or stem(included) not in UNITS:
            continue
        if folder_of(file) != folder_of(included):
            found.add((folder_of(file), stem(included)))
        elif stem(file) in UNITS and stem(file) != stem(included):
            found.add((stem(file), stem(included)))
    return sorted(found)


def commands():
    return [stem(os.path.basename(file)) for file in files()
            if re.match(r"cli/commands/\w+\.cpp$", file)]


def arrow(start, end):
    x, y, width, height = FOLDERS.get(start) or UNITS[start]
    to_x, to_y, to_width, _ = UNITS[end]
    if y == to_y:
        return (x + width, y + height // 2, to_x, to_y + height // 2)
    meets = MEETS.get((start, end), to_x + to_width // 2)
    return (min(max(meets, x + 10), x + width - 10), y + height, meets, to_y)


def picture():
    out = ['<svg xmlns="http://www.w3.org/2000/svg" width="900" height="520" '
           'font-family="sans-serif" font-size="13">',
           '<defs><marker id="tip" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="8" '
           'markerHeight="8" orient="auto"><path d="M0 0L8 4L0 8z" fill="#444"/></marker></defs>',
           '<rect width="100%" height="100%" fill="white"/>']
    for folder, (x, y, width, height) in FOLDERS.items():
        out += ['<rect x="%d" y="%d" width="%d" height="%d" rx="6" fill="#eef3f8" stroke="#8aa"/>'
                % (x, y, width, height),
                '<text x="%d" y="%d" font-weight="bold">%s/</text>' % (x + 10, y + 20, folder)]
    out.append('<text x="30" y="64">the tool, over public headers only; one file a command:</text>')
    out.append('<text x="30" y="84">%s</text>' % ", ".join(commands()))
    for unit, (x, y, width, height) in UNITS.items():
        out += ['<rect x="%d" y="%d" width="%d" height="%d" rx="3" fill="#fff" stroke="#567"/>'
                % (x, y, width, height),
                '<text x="%d" y="%d" text-anchor="middle">%s</text>'
                % (x + width // 2, y + 20, unit.split("/")[1])]
    for start, end in arrows():
        out.append('<line x1="%d" y1="%d" x2="%d" y2="%d" stroke="#444" marker-end="url(#tip)"/>'
                   % arrow(start, end))
    return "\n".join(out + ["</svg>", ""])


if __name__ == "__main__":
    if sys.argv[1:] != ["--write"]:
        sys.exit(__doc__)
    with open(os.path.join(markdown.ROOT, "docs", "house.svg"), "w", encoding="utf-8") as svg:
        svg.write(picture())
