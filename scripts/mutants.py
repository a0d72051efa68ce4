#!/usr/bin/env python3
"""Changes the library in one place at a time and counts the changes that its tests do not notice.

    mutants.py               tries all mutants and prints each with its fate, then the figure
    mutants.py --list        only prints what would be tried
    mutants.py --only WHAT   tries those in whose line of the list the regular expression WHAT is found (a file, an operator)
    mutants.py --rest        tries those that have no fate yet, after a run that was stopped
    mutants.py --survivors   tries again what survived the last time, after tests were added

A mutant is the library with one comparison, boundary, constant, sign, order, operand, logical operator or branch changed. It is killed when
a test program of its subsystem fails, crashes or needs far more time than without it; it has survived when all pass. One that does not
compile does not count. What survives is either equivalent, as a changed threshold between two ways to the same result is, or it shows what
no test looks at.

Which places are changed follows from the text of the sources alone: so many of each file (QUOTAS, most where order and ties decide), of
each operator in turn, those first whose line has the smallest hash. Other changes of a file move few of them.

Nothing is changed in the working tree: sources are copied to build/mutants/source, with the changes that are not committed, and built in
build/mutants/build without ccache. One program runs at a time, and a mutant takes about half a minute. The fates are kept in
build/mutants/fates.txt. Run it with `nice`.
"""

import argparse
import functools
import hashlib
import os
import re
import resource
import shutil
import subprocess
import sys
import time
from collections import namedtuple
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "mutants"
SOURCE = WORK / "source"
BUILD = WORK / "build"
FATES = WORK / "fates.txt"

# Mutants of each file, and the test programs that are to kill them.
QUOTAS = [
    ("gridweave/search/node_tree.cpp", 11, "search edit"),
    ("gridweave/edit/merge.cpp", 10, "edit"),
    ("gridweave/metrics/relaxation.h", 10, "relaxation"),
    ("gridweave/metrics/gradation_heap.h", 5, "relaxation"),
    ("gridweave/connectivity/neighbors.cpp", 6, "connectivity"),
    ("gridweave/connectivity/edges.cpp", 5, "connectivity"),
    ("gridweave/connectivity/node_graph.cpp", 4, "connectivity"),
    ("gridweave/connectivity/subdomains.cpp", 5, "connectivity"),
    ("gridweave/connectivity/elements_on_boundaries.cpp", 3, "connectivity"),
    ("gridweave/connectivity/boundaries.cpp", 2, "connectivity"),
    ("gridweave/search/node_tree.h", 4, "search edit"),
    ("gridweave/search/node_detector.cpp", 2, "search"),
    ("gridweave/edit/compaction.cpp", 3, "edit"),
    ("gridweave/edit/clip.cpp", 1, "edit"),
    ("gridweave/edit/copy.cpp", 1, "edit"),
    ("gridweave/edit/transform.cpp", 2, "edit"),
    ("gridweave/quality/shape_quality.cpp", 4, "quality"),
    ("gridweave/quality/edge_quality.cpp", 2, "quality"),
    ("gridweave/quality/jacobians.cpp", 2, "quality"),
    ("gridweave/quality/h_shock.cpp", 1, "quality"),
    ("gridweave/core/indices.cpp", 5, "core"),
    ("gridweave/core/lookup.cpp", 3, "core"),
    ("gridweave/metrics/edge_measure.h", 2, "relaxation"),
    ("gridweave/metrics/eigenstructure.cpp", 2, "metrics"),
    ("gridweave/metrics/reduction.h", 2, "metrics"),
    ("gridweave/metrics/minimize.h", 2, "relaxation"),
    ("gridweave/metrics/size_generation.cpp", 2, "metrics"),
    ("gridweave/metrics/validity.cpp", 2, "metrics"),
    ("gridweave/io/nastran_input.cpp", 3, "io"),
    ("gridweave/io/femap_input.cpp", 3, "io"),
    ("gridweave/io/stl.cpp", 3, "io memory"),
    ("gridweave/io/wavefront_obj.cpp", 2, "io"),
    ("gridweave/io/number_text.cpp", 3, "io"),
    ("gridweave/io/triangle_soup.cpp", 1, "io"),
    ("gridweave/io/medit.cpp", 1, "io"),
    ("gridweave/io/nastran_output.cpp", 1, "io"),
    ("auxkit/histogram.cpp", 1, "auxkit quality"),
]

Mutant = namedtuple("Mutant", "file begin end replacement line operator programs text")


# ---- Where sources can be changed ----------------------------------------------------------------------------------------------------


def without_comments(text):
    """The text with comments, literals of characters and preprocessor lines blanked out, everything else in its place."""
    blank = lambda match: re.sub(r"[^\n]", " ", match.group())
    return re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])\'|^[ ]*#[^\n]*', blank, text, flags=re.S | re.M)


def end_of_operand(code, begin):
    """Where the operand that begins there ends: before what closes it, or before the next operator of lower rank."""
    depth = 0
    for at in range(begin, len(code)):
        if code[at] in "([{":
            depth += 1
        elif code[at] in ")]}":
            if depth == 0:
                return at
            depth -= 1
        elif depth == 0 and (code[at] in ";,?" or code.startswith((" && ", " || ", " : "), at)):
            return at
    return len(code)


def replaced(pattern, replacement):
    """An operator that replaces what the first group of a pattern matches."""

    def places(code):
        for match in re.finditer(pattern, code):
            yield match.start(1), match.end(1), replacement(match.group(1))

    return places


def negated_conditions(code):
    for match in re.finditer(r"\bif \(", code):
        end = end_of_operand(code, match.end())
        while code[end] != ")":
            end = end_of_operand(code, end + 1)
        yield match.end(), end, f"!({code[match.end():end]})"


def swapped_choices(code):
    for match in re.finditer(r" \? ", code):
        middle = end_of_operand(code, match.end())
        if code.startswith(" : ", middle):
            end = end_of_operand(code, middle + 3)
            yield match.end(), end, f"{code[middle + 3:end]} : {code[match.end():middle]}"


def branches(code):
    yield from negated_conditions(code)
    yield from swapped_choices(code)


def dropped_operands(code):
    for match in re.finditer(r" (&&|\|\|) ", code):
        yield match.start(), end_of_operand(code, match.end()), ""


COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
REVERSED = {"<": ">", ">": "<", "<=": ">=", ">=": "<=", "std::min": "std::max", "std::max": "std::min"}
SIGNS = {"+": "-", "-": "+", "+=": "-=", "-=": "+="}

OPERATORS = {
    "comparison": replaced(r" (<=|>=|<|>|==|!=) ", COMPARISONS.get),
    "order": replaced(r"(?<![\w:])((?<= )(?:<=|>=|<|>)(?= )|std::(?:min|max)(?=[(<]))", REVERSED.get),
    "operand": dropped_operands,
    "boundary": replaced(r"( [+-] 1)\b(?!\.)", lambda _: ""),
    "logic": replaced(r" (&&|\|\|) ", {"&&": "||", "||": "&&"}.get),
    "constant": replaced(r"(?<![\w.'])(\d+)(?=u?\b|\.\d)(?![xX'])", lambda digits: str(int(digits) + 1)),
    "sign": replaced(r"[ (]([+-]=?)(?=[ \w(])", SIGNS.get),
    "branches": branches,
}

# Ties hang on comparisons.
TURNS = ["comparison", "operand", "order", "boundary", "comparison", "logic", "constant", "order", "sign", "branches"]


def mutants_of(file, quota, programs):
    text = (ROOT / file).read_text()
    code = without_comments(text)
    groups = {}
    for operator, places in OPERATORS.items():
        found = []
        seen = {}
        for begin, end, replacement in places(code):
            line = text.count("\n", 0, begin) + 1
            whole = text.split("\n")[line - 1].strip()
            statement = re.split("[;{}]", code[:begin])[-1]
            # What the compiler checks, what changes no result, and loops that never run, or run too far, which is for sanitizers.
            if re.search(r"static_assert|template|prefetch", statement + whole):
                continue
            if operator in ("comparison", "order") and whole.startswith("for ("):
                continue
            seen[whole] = seen.get(whole, 0) + 1
            rank = hashlib.sha256(f"{operator} {whole} {seen[whole]}".encode()).hexdigest()
            old, new = (" ".join(part.split()) for part in (code[begin:end], replacement))
            summary = f"{file}:{line} {operator}: {old or 'nothing'} -> {new or 'nothing'} in: {whole}"
            found.append((rank, Mutant(file, begin, end, replacement, line, operator, programs.split(), summary)))
        groups[operator] = [mutant for _, mutant in sorted(found, key=lambda entry: entry[0])]

    chosen = []
    turn = len(file)  # so that small quotas do not all begin with the same operator
    while len(chosen) < quota and any(groups.values()):
        group = groups[TURNS[turn % len(TURNS)]]
        turn += 1
        # One change per line, so that they spread.
        while group:
            mutant = group.pop(0)
            if mutant.line not in [other.line for other in chosen]:
                chosen.append(mutant)
                break
    return sorted(chosen, key=lambda mutant: (mutant.line, mutant.begin))


# ---- Building and running ------------------------------------------------------------------------------------------------------------


def copy_sources():
    """Brings the copy up to date, and leaves alone what is the same, so that it is not built again."""
    names = subprocess.run(["git", "ls-files", "--cached", "--others", "--exclude-standard"], cwd=ROOT, check=True, capture_output=True, text=True)
    for name in names.stdout.split("\n"):
        origin, copy = ROOT / name, SOURCE / name
        if not name or not origin.is_file() or (copy.is_file() and copy.read_bytes() == origin.read_bytes()):
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(origin, copy)
        shutil.copymode(origin, copy)


def configure():
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DBUILD_SHARED_LIBS=OFF", "-DGRIDWEAVE_BUILD_EXAMPLES=OFF"]
    subprocess.run(["cmake", "-S", SOURCE, "-B", BUILD, "-G", "Ninja", *options, "-DCMAKE_CXX_COMPILER_LAUNCHER="], check=True, stdout=subprocess.DEVNULL)


def build(programs, seconds=600):
    """Builds test programs; false when that fails."""
    command = ["ninja", "-C", BUILD, "-j", "1", *(f"{program}_tests" for program in programs)]
    return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=seconds).returncode == 0


def run(program, cpu_seconds):
    """Runs a test program up to its first failure, within limits. The result is whether all passed, and the time it took."""

    def limit():
        resource.setrlimit(resource.RLIMIT_CPU, (cpu_seconds, cpu_seconds))
        resource.setrlimit(resource.RLIMIT_AS, (16 << 30, 16 << 30))  # some tests take room that they never touch
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    (path,) = BUILD.glob(f"tests/*/{program}_tests")
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime
    try:
        code = subprocess.run(
            [path, "--gtest_brief=1"], cwd=path.parent, env={**os.environ, "GTEST_FAIL_FAST": "1"}, preexec_fn=limit,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=20 * cpu_seconds).returncode
    except subprocess.TimeoutExpired:
        code = 1
    return code == 0, resource.getrusage(resource.RUSAGE_CHILDREN).ru_utime - before


@functools.cache
def limit_of(program):
    """Seconds of the processor that a test program may take, by what it takes now. To be called while nothing is changed."""
    passed, seconds = run(program, 600)
    if not passed:
        sys.exit(f"mutants.py: {program}_tests fails without a change.")
    return int(10 + 4 * seconds)


def fate_of(mutant):
    limits = {program: limit_of(program) for program in mutant.programs}
    place = SOURCE / mutant.file
    original = place.read_text()
    place.write_text(original[: mutant.begin] + mutant.replacement + original[mutant.end :])
    try:
        if not build(mutant.programs):
            return "does not compile"
        return "survived" if all(run(program, limits[program])[0] for program in mutant.programs) else "killed"
    finally:
        place.write_text(original)


def without_line(text):
    """What a fate is kept under: lines move."""
    return re.sub(r":\d+ ", " ", text, count=1)


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("--list", action="store_true", help="only print the mutants")
    arguments.add_argument("--only", metavar="PATTERN", default="", help="only those in whose line of the list the pattern is found")
    arguments.add_argument("--survivors", action="store_true", help="only those that survived before")
    arguments.add_argument("--rest", action="store_true", help="only those that were not tried yet")
    choice = arguments.parse_args()

    mutants = [mutant for entry in QUOTAS for mutant in mutants_of(*entry) if re.search(choice.only, mutant.text)]
    fates = {}
    if FATES.is_file():
        fates = {without_line(text): fate for fate, text in (re.split("  +", line, 1) for line in FATES.read_text().splitlines())}
    if choice.survivors:
        mutants = [mutant for mutant in mutants if fates.get(without_line(mutant.text)) == "survived"]
    if choice.rest:
        mutants = [mutant for mutant in mutants if without_line(mutant.text) not in fates]
    if choice.list:
        print(*(mutant.text for mutant in mutants), f"{len(mutants)} mutants", sep="\n")
        return

    WORK.mkdir(parents=True, exist_ok=True)
    copy_sources()
    configure()
    programs = sorted({program for mutant in mutants for program in mutant.programs})
    if not build(programs, 7200):
        sys.exit("mutants.py: the sources do not build as they are.")
    counts = {}
    begin = time.time()
    for mutant in mutants:
        fate = fate_of(mutant)
        fates[without_line(mutant.text)] = fate
        counts[fate] = counts.get(fate, 0) + 1
        print(f"{fate:16}  {mutant.text}", flush=True)
        FATES.write_text("".join(f"{known}  {text}\n" for text, known in fates.items()))
    killed, survived = counts.get("killed", 0), counts.get("survived", 0)
    print(f"{killed} of {killed + survived} mutants killed, {survived} survived, {counts.get('does not compile', 0)} did not compile; "
          f"{time.time() - begin:.0f} s")


if __name__ == "__main__":
    main()
