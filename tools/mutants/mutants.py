#!/usr/bin/env python3
"""Mutation testing of the library: how many small faults do the tests catch?

For each subsystem, a sample of mutation sites is drawn with a fixed seed from the library
sources of that subsystem (keel/<subsystem>/*.cpp and *.h). Each mutant is applied alone, the
subsystem's test program is rebuilt (only what changed, through ninja), and the program is run
directly, stopping at the first failure. A mutant is killed when the program fails or times out,
survives when it passes, and is left out when it does not compile. The same seed and the same
sources give the same mutants, so two runs compare: with --against an earlier report, the
mutants that did not compile there are left out, and those whose outcome changed are listed.

A mutant can turn a guarded operation loose (a folder deletion that no longer refuses the root),
so run as root, the tests run as the unprivileged user 65534 with a home of their own.
"""

import argparse
import os
import random
import re
import subprocess
import shutil
import sys
import tempfile
import time
from dataclasses import dataclass

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
SUBSYSTEMS = ["platform", "values", "system", "document", "formula", "tables", "questions", "exchange",
              "geometry"]

# Operators that mutate into their opposite. clang-format puts spaces around binary operators,
# which keeps template brackets, pointers and unary signs out of the sample.
SWAPS = [
    (" == ", " != "),
    (" != ", " == "),
    (" <= ", " > "),
    (" >= ", " < "),
    (" < ", " >= "),
    (" > ", " <= "),
    (" + ", " - "),
    (" - ", " + "),
    (" && ", " || "),
    (" || ", " && "),
]
BOOLEANS = [("true", "false"), ("false", "true")]
INTEGER = re.compile(r"(?<![\w.])(\d+)(?![\w.'])")
STATEMENT = re.compile(r"^\s+(?!return\b|break\b|continue\b|case\b|default\b|else\b|goto\b)"
                       r"[A-Za-z_][\w:]*(\.|->|\(|\[|\s*[-+*/|&]?=\s)[^;{}]*;\s*$")


@dataclass
class Mutant:
    path: str
    line: int
    column: int
    kind: str
    before: str
    after: str

    def describe(self):
        return "%s:%d:%d %s '%s' -> '%s'" % (self.path, self.line + 1, self.column + 1, self.kind,
                                             self.before.strip(), self.after.strip())


def code_mask(lines):
    """For each line, the text with string and character literals and comments blanked out."""
    masked = []
    in_block = False
    for text in lines:
        out = []
        i = 0
        while i < len(text):
            if in_block:
                end = text.find("*/", i)
                if end < 0:
                    out.append(" " * (len(text) - i))
                    i = len(text)
                else:
                    out.append(" " * (end + 2 - i))
                    i = end + 2
                    in_block = False
                continue
            c = text[i]
            if text.startswith("//", i):
                out.append(" " * (len(text) - i))
                break
            if text.startswith("/*", i):
                in_block = True
                continue
            if c in "\"'":
                j = i + 1
                while j < len(text) and text[j] != c:
                    j += 2 if text[j] == "\\" else 1
                out.append(" " * (min(j + 1, len(text)) - i))
                i = j + 1
                continue
            out.append(c)
            i += 1
        masked.append("".join(out))
    return masked


def sites_in(path):
    with open(os.path.join(ROOT, path), encoding="utf-8") as f:
        lines = f.read().split("\n")
    found = []
    for n, code in enumerate(code_mask(lines)):
        stripped = code.strip()
        if not stripped or stripped.startswith("#") or "static_assert" in code:
            continue
        for before, after in SWAPS:
            for m in re.finditer(re.escape(before), code):
                found.append(Mutant(path, n, m.start(), "operator", before, after))
        for before, after in BOOLEANS:
            for m in re.finditer(r"\b%s\b" % before, code):
                found.append(Mutant(path, n, m.start(), "boolean", before, after))
        for m in INTEGER.finditer(code):
            if "[" in code[:m.start()] and code.rstrip().endswith("];"):
                continue  # array bounds of declarations rarely compile when changed
            value = m.group(1)
            if value.startswith("0") and value != "0":
                continue  # octal
            found.append(Mutant(path, n, m.start(), "constant", value, str(int(value) + 1)))
        if STATEMENT.match(code) and not lines[n].rstrip().endswith(","):
            body = lines[n].strip()
            found.append(Mutant(path, n, code.index(body[0]), "statement", body, ";"))
    return found


def apply(mutant, original):
    lines = original.split("\n")
    text = lines[mutant.line]
    start = mutant.column
    assert text[start:start + len(mutant.before)] == mutant.before, mutant.describe()
    lines[mutant.line] = text[:start] + mutant.after + text[start + len(mutant.before):]
    return "\n".join(lines)


def sources_of(subsystem):
    folder = os.path.join(ROOT, "keel", subsystem)
    names = sorted(n for n in os.listdir(folder) if n.endswith((".cpp", ".h")))
    return [os.path.join("keel", subsystem, n) for n in names]


UNPRIVILEGED = 65534


def unprivileged(command):
    """The command as the unprivileged user, with a home and temporary folder it owns."""
    if os.geteuid() != 0:
        return command, None
    home = tempfile.mkdtemp(prefix="keel-mutant-")
    os.chown(home, UNPRIVILEGED, UNPRIVILEGED)
    # The caller's PATH may pass through folders the user cannot enter (root's home), which
    # turns every "no such program" into "permission denied".
    env = dict(os.environ, HOME=home, TMPDIR=home, XDG_CONFIG_HOME=os.path.join(home, "config"),
               XDG_DATA_HOME=os.path.join(home, "data"), PATH="/usr/local/bin:/usr/bin:/bin")
    setpriv = ["setpriv", "--reuid=%d" % UNPRIVILEGED, "--regid=%d" % UNPRIVILEGED,
               "--clear-groups", "--no-new-privs"]
    return (setpriv + command, (home, env))


def run(command, timeout=None, as_tests=False):
    sandbox = None
    env = None
    if as_tests:
        command, sandbox = unprivileged(command)
        if sandbox:
            env = sandbox[1]
    try:
        done = subprocess.run(command, cwd=ROOT, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout, env=env)
        return done.returncode
    except subprocess.TimeoutExpired:
        return "timeout"
    finally:
        if sandbox:
            shutil.rmtree(sandbox[0], ignore_errors=True)


def build(build_dir, target):
    return run(["ninja", "-C", build_dir, target]) == 0


def test_command(build_dir, subsystem):
    program = os.path.join(build_dir, "bin", "keel_%s_tests" % subsystem)
    return [program, "--gtest_fail_fast", "--gtest_brief=1"]


def baseline_seconds(build_dir, subsystem):
    start = time.monotonic()
    status = run(test_command(build_dir, subsystem), as_tests=True)
    if status != 0:
        sys.exit("the %s tests fail without mutants; fix them first" % subsystem)
    return time.monotonic() - start


def try_mutant(mutant, build_dir, subsystem, timeout):
    path = os.path.join(ROOT, mutant.path)
    with open(path, encoding="utf-8") as f:
        original = f.read()
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(apply(mutant, original))
        if not build(build_dir, "keel_%s_tests" % subsystem):
            return "invalid"
        status = run(test_command(build_dir, subsystem), timeout=timeout, as_tests=True)
        return "survived" if status == 0 else "killed"
    finally:
        with open(path, "w", encoding="utf-8") as f:
            f.write(original)


def earlier_outcomes(report_path):
    """Outcome by mutant description, from the lines of an earlier report."""
    outcomes = {}
    with open(report_path, encoding="utf-8") as f:
        for line in f:
            outcome, _, described = line.rstrip("\n").partition(" ")
            if outcome in ("killed", "survived", "invalid"):
                outcomes[described.strip()] = outcome
    return outcomes


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build-dir", default=os.path.join(ROOT, "build-mutants"))
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=30, help="mutants a subsystem")
    parser.add_argument("--list", action="store_true", help="list the sample without running it")
    parser.add_argument("--against", metavar="REPORT",
                        help="an earlier report (or log) of the same sample to compare with")
    parser.add_argument("subsystems", nargs="*", default=SUBSYSTEMS)
    args = parser.parse_args()
    before = earlier_outcomes(args.against) if args.against else None
    changed = []

    report_path = os.path.join(args.build_dir, "mutants-report.txt")
    report = [] if args.list else [open(report_path, "w", encoding="utf-8")]
    totals = []
    for subsystem in args.subsystems:
        candidates = [m for path in sources_of(subsystem) for m in sites_in(path)]
        sample = random.Random("%d/%s" % (args.seed, subsystem)).sample(
            candidates, min(args.count, len(candidates)))
        if args.list:
            for mutant in sample:
                print(subsystem, mutant.describe())
            continue
        if not build(args.build_dir, "keel_%s_tests" % subsystem):
            sys.exit("the %s tests do not build" % subsystem)
        timeout = max(30.0, 10 * baseline_seconds(args.build_dir, subsystem))
        counts = {"killed": 0, "survived": 0, "invalid": 0}
        for mutant in sample:
            earlier = before.get(mutant.describe()) if before is not None else None
            if earlier == "invalid":
                outcome = "invalid"
            else:
                outcome = try_mutant(mutant, args.build_dir, subsystem, timeout)
            counts[outcome] += 1
            line = "%-9s %s" % (outcome, mutant.describe())
            print(line, flush=True)
            report[0].write(line + "\n")
            if before is not None and earlier != outcome:
                changed.append("%-9s was %-9s %s" % (outcome, earlier or "not run", mutant.describe()))
        build(args.build_dir, "keel_%s_tests" % subsystem)
        valid = counts["killed"] + counts["survived"]
        rate = 100.0 * counts["killed"] / valid if valid else 0.0
        totals.append("%-10s killed %3d  survived %3d  not compiled %3d  kill rate %5.1f%%" % (
            subsystem, counts["killed"], counts["survived"], counts["invalid"], rate))
        print(totals[-1], flush=True)
    if before is not None:
        totals.append("outcomes changed since %s: %d" % (args.against, len(changed)))
        totals.extend(changed)
    if report:
        report[0].write("\n".join(totals) + "\n")
        report[0].close()
        print("\n".join(["", "seed %d, %d a subsystem" % (args.seed, args.count)] + totals))
        print("report: %s" % report_path)


if __name__ == "__main__":
    main()
