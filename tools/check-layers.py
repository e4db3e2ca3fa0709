#!/usr/bin/env python3
"""Fails when a file of the library includes a header of a higher layer.

Usage: tools/check-layers.py [ROOT]   (ROOT defaults to the repository holding this script)

Every .h and .cpp under ROOT/keel/ and ROOT/tools/keel/ belongs to one layer, found by the
longest matching prefix of its path without extension. An #include "keel/..." (or
"tools/keel/...") may name a header of the same layer or of a lower one; a few edges upward are
allowed by name below, each with its reason. A file under keel/ that no layer claims fails too,
so that a new folder gets its place in the order before it grows includes.
"""

import pathlib
import re
import sys

# Lowest first. A prefix ending in "/" takes a folder; otherwise it names one file (both its .h
# and its .cpp).
LAYERS = [
    ("platform", ["keel/platform/"]),
    ("values", ["keel/values/"]),
    ("paths", ["keel/system/pathop", "keel/system/currentdirectory", "keel/system/folders"]),
    ("document services", [
        "keel/document/appservices",
        "keel/document/commandline",
        "keel/document/usertrace",
        "keel/document/translate",
    ]),
    ("error log", ["keel/document/errorlog"]),
    ("files", ["keel/system/"]),
    ("formula", ["keel/formula/"]),
    ("tables", ["keel/tables/"]),
    ("questions, exchange, geometry", ["keel/questions/", "keel/exchange/", "keel/geometry/"]),
    ("document", ["keel/document/"]),
    ("application", ["keel/document/winapp"]),
    ("program", ["tools/keel/"]),
]

# (including file, included header): why the edge goes up.
ALLOWED_EDGES = {
    ("keel/document/translate.cpp", "keel/document/errorlog.h"):
        "a translation file that cannot be read or saved is reported in the error log, "
        "whose own texts are translated",
    ("keel/formula/formulacontext.cpp", "keel/questions/properties.h"):
        "a formula context forwards its property operations to the answers it holds",
    ("keel/formula/formulacontext.cpp", "keel/questions/propdeftabgroupset.h"):
        "a formula context gives the current group and tab of the question definitions it holds",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"((?:keel|tools/keel)/[^"]+)"')


def layer_of(relative):
    stem = relative.rsplit(".", 1)[0]
    best = None
    for index, (_, prefixes) in enumerate(LAYERS):
        for prefix in prefixes:
            matches = stem.startswith(prefix) if prefix.endswith("/") else stem == prefix
            if matches and (best is None or len(prefix) > best[1]):
                best = (index, len(prefix))
    return None if best is None else best[0]


def sources(root):
    for folder in ("keel", "tools/keel"):
        base = root / folder
        if base.is_dir():
            for path in sorted(base.rglob("*")):
                if path.suffix in (".h", ".cpp") and path.is_file():
                    yield path


def check(root):
    problems = []
    for path in sources(root):
        relative = path.relative_to(root).as_posix()
        own = layer_of(relative)
        if own is None:
            problems.append(f"{relative}: belongs to no layer; give its folder a place in LAYERS")
            continue
        text = path.read_text(encoding="utf-8", errors="replace")
        for number, line in enumerate(text.splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            header = match.group(1)
            theirs = layer_of(header)
            if theirs is None or theirs <= own or (relative, header) in ALLOWED_EDGES:
                continue
            problems.append(f"{relative}:{number}: includes {header} of the layer "
                            f"'{LAYERS[theirs][0]}', above its own layer '{LAYERS[own][0]}'")
    return problems


def main(argv):
    root = pathlib.Path(argv[1]) if len(argv) > 1 else pathlib.Path(__file__).resolve().parents[1]
    if not (root / "keel").is_dir():
        print(f"check-layers: no keel/ folder in {root}", file=sys.stderr)
        return 2
    problems = check(root)
    for problem in problems:
        print(problem, file=sys.stderr)
    if problems:
        print(f"check-layers: {len(problems)} include(s) against the order of layers",
              file=sys.stderr)
        return 1
    print("check-layers: every include points down")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
