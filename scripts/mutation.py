#!/usr/bin/env python3
"""Changes one operator, constant or condition of the library at a time and runs the unit tests of its
folder, which have to notice. Prints the score of each folder and the mutants that survived.

A mutant that does not compile counts as none. Those in tests/mutation/equivalent.txt behave like the
original, for the reason given there; they are not run. The same seed chooses the same mutants while
the lines they change stay as they are. Ends non-zero if a smaller share is killed than asked for.
"""

import argparse
import concurrent.futures
import hashlib
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = ROOT / "build" / "mutation"
EQUIVALENT = ROOT / "tests" / "mutation" / "equivalent.txt"

# Sources, and the programs that test them. Tables of limits are replaced by the tests.
SUBJECTS = {
    "link": ("src/link/*.cpp", ["link_memory_test", "link_test"]),
    "worker": ("src/worker/*.cpp", ["worker_test"]),
    "objects": ("src/objects/*.cpp", ["objects_test"]),
    "comparam": ("src/comparam/*.cpp", ["comparam_test"]),
    "secure_channel": ("src/transport/cloud/secure_channel*.cpp", ["secure_channel_test"]),
}
LEFT_OUT = "_limits.cpp"

OPERATORS = {
    "<": ["<=", ">="], ">": [">=", "<="], "<=": ["<", ">"], ">=": [">", "<"],
    "==": ["!="], "!=": ["=="], "&&": ["||"], "||": ["&&"],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"],
    "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "|=": ["&="], "&=": ["|="],
}
# The format rules put binary operators between spaces, or a space and the end of the line.
BINARY = re.compile(r"(?<= )(?:<<|>>|[<>=!+\-|&]=|&&|\|\||[<>+\-*/%&|^])(?=[ \n])")
STEP = re.compile(r"\+\+(?=\w)|(?<=\w)\+\+|--(?=\w)|(?<=\w)--")
NEGATION = re.compile(r"!(?=[\w(:*])")
TRUTH = re.compile(r"\b(?:true|false)\b")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f]+|\d[\d']*)(?=[uU]?\b)(?![\w.]*[.'])")
CONDITION = re.compile(r"\b(if|while) \(")
NO_CODE = re.compile(r"^\s*(?:#|static_assert|template <|using )")


@dataclass(frozen=True)
class Mutant:
    file: str
    line: int
    before: str  # the lines that change, with single spaces
    after: str
    text: str    # of the whole file


def blank_out(source):
    """The source, in which comments and literals have become spaces."""
    pattern = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'', re.S)
    blank = pattern.sub(lambda found: re.sub(r"[^\n]", " ", found.group()), source)
    lines = [" " * len(line) if NO_CODE.match(line) else line for line in blank.split("\n")]
    return "\n".join(lines)


def closing(text, at):
    """The position behind the bracket that closes the one before `at`."""
    depth = 1
    while depth > 0:
        depth += {"(": 1, ")": -1}.get(text[at], 0)
        at += 1
    return at


def changes(code):
    """(begin, end, replacement) of each possible change."""
    for found in BINARY.finditer(code):
        for other in OPERATORS[found.group()]:
            yield found.start(), found.end(), other
    for found in STEP.finditer(code):
        yield found.start(), found.end(), "--" if found.group() == "++" else "++"
    for found in NEGATION.finditer(code):
        yield found.start(), found.end(), ""
    for found in TRUTH.finditer(code):
        yield found.start(), found.end(), "false" if found.group() == "true" else "true"
    for found in NUMBER.finditer(code):
        value = int(found.group(1).replace("'", ""), 0)
        yield found.start(), found.end(1), str(value + 1)
    for found in CONDITION.finditer(code):
        end = closing(code, found.end()) - 1
        yield found.end(), end, "false"
        if found.group(1) == "if":
            yield found.end(), end, "true"


def mutants_of(path):
    source = path.read_text(encoding="utf-8")
    for begin, end, replacement in changes(blank_out(source)):
        first = source.rfind("\n", 0, begin) + 1
        last = source.find("\n", end)
        # Lines keep their numbers.
        replaced = replacement + "\n" * source.count("\n", begin, end)
        yield Mutant(
            file=str(path.relative_to(ROOT)),
            line=source.count("\n", 0, begin) + 1,
            before=" ".join(source[first:last].split()),
            after=" ".join((source[first:begin] + replacement + source[end:last]).split()),
            text=source[:begin] + replaced + source[end:])


def known_equivalents():
    """Entries of four parts: the file, "- before", "+ after", and the reason, up to an empty line."""
    entries = {}
    text = EQUIVALENT.read_text(encoding="utf-8") if EQUIVALENT.exists() else ""
    for block in text.split("\n\n"):
        lines = [line for line in block.splitlines() if line and not line.startswith("#")]
        if not lines:
            continue
        if len(lines) < 4 or not lines[1].startswith("- ") or not lines[2].startswith("+ "):
            sys.exit(f"{EQUIVALENT}: an entry is file, - before, + after, reason; not:\n{block}")
        entries[(lines[0], lines[1][2:], lines[2][2:])] = False
    return entries


def survivors_of(output):
    found = re.findall(r"^survived: (.*):\d+\n- (.*)\n\+ (.*)$", output, re.M)
    return set(found)


def choose(mutants, count, seed):
    """The `count` mutants with the smallest hash: others that come and go do not change the choice."""
    seen = {}

    def key(mutant):
        identity = (mutant.file, mutant.before, mutant.after)
        text = "\0".join((seed, *identity, str(seen.setdefault(identity, 0))))
        seen[identity] += 1
        return hashlib.sha256(text.encode()).digest()

    return sorted(sorted(mutants, key=key)[:count], key=lambda mutant: (mutant.file, mutant.line))


def share(candidates, count):
    """How many mutants each subject gets: half of them evenly, half by its size."""
    whole = sum(len(mutants) for mutants in candidates.values())
    return {name: min(len(mutants), count // 2 // len(candidates)
                      + (count - count // 2) * len(mutants) // whole + 1)
            for name, mutants in candidates.items()}


class Builder:
    """Compiles a mutant and links it in front of the library, whose own object is then not taken."""

    def __init__(self):
        with open(BUILD / "compile_commands.json", encoding="utf-8") as file:
            self.commands = {entry["file"]: shlex.split(entry["command"]) for entry in json.load(file)}

    def compile(self, mutant, folder):
        command = list(self.commands[str(ROOT / mutant.file)])
        source = folder / Path(mutant.file).name
        source.write_text(mutant.text, encoding="utf-8")
        command[command.index("-c") + 1] = str(source)
        command[command.index("-o") + 1] = str(folder / "mutant.o")
        # Warnings are no reason to give a mutant up.
        command = [word for word in command if word != "-Werror"] + ["-w"]
        return subprocess.run(command, cwd=BUILD, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0

    def link(self, test, folder):
        lines = subprocess.run(["ninja", "-t", "commands", "-s", f"tests/unit/{test}"], cwd=BUILD,
                               check=True, capture_output=True, text=True).stdout.splitlines()
        words = shlex.split(lines[-1].removeprefix(": && ").removesuffix(" && :"))
        words[words.index("-o") + 1] = str(folder / test)
        words.insert(words.index("-o"), str(folder / "mutant.o"))
        return subprocess.run(words, cwd=BUILD, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, check=False).returncode == 0


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def passes(program, folder, seconds):
    """False also if it does not end in time. What it has started ends with it."""
    # Files, so that a child that lives on does not keep a pipe open.
    process = subprocess.Popen(
        [program, "--gtest_fail_fast", "--gtest_brief=1"], cwd=folder, start_new_session=True,
        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        env={**os.environ, "TMPDIR": str(folder)}, preexec_fn=limit_memory)
    try:
        return process.wait(seconds) == 0
    except subprocess.TimeoutExpired:
        return False
    finally:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()


def judge(builder, mutant, tests, limits):
    """none, killed or survived."""
    folder = Path(tempfile.mkdtemp(dir=BUILD / "work"))
    try:
        if not builder.compile(mutant, folder):
            return "none"
        for test in tests:
            if not builder.link(test, folder):
                return "none"
            if not passes(folder / test, folder, limits[test]):
                return "killed"
            (folder / test).unlink()
        return "survived"
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def time_limits(names):
    """Many times what the unchanged programs need. They have to pass."""
    limits = {}
    for name in names:
        for test in SUBJECTS[name][1]:
            began = time.monotonic()
            with tempfile.TemporaryDirectory(dir=BUILD / "work") as folder:
                if not passes(BUILD / "tests" / "unit" / test, Path(folder), 600):
                    sys.exit(f"mutation: {test} fails without any change")
            limits[test] = 20 + 10 * (time.monotonic() - began)
    return limits


def configure_and_build(names):
    targets = " ".join(test for name in names for test in SUBJECTS[name][1])
    subprocess.run([ROOT / "scripts" / "build.sh", "mutation"], check=True,
                   env={**os.environ, "BUILD_TARGETS": targets})
    shutil.rmtree(BUILD / "work", ignore_errors=True)
    (BUILD / "work").mkdir()


def collect(names):
    equivalents = known_equivalents()
    candidates, listed = {}, {}
    for name in names:
        found = [mutant for path in sorted(ROOT.glob(SUBJECTS[name][0]))
                 if not path.name.endswith(LEFT_OUT) for mutant in mutants_of(path)]
        candidates[name] = []
        for mutant in found:
            identity = (mutant.file, mutant.before, mutant.after)
            if identity in equivalents:
                equivalents[identity] = True
            else:
                candidates[name].append(mutant)
        listed[name] = len(found) - len(candidates[name])
    if len(names) == len(SUBJECTS):
        for (file, before, _), used in equivalents.items():
            if not used:
                print(f"tests/mutation/equivalent.txt: no longer in {file}: {before}")
    return candidates, listed


def run(chosen, jobs):
    builder = Builder()
    limits = time_limits(chosen)
    results = {}
    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        waiting = {pool.submit(judge, builder, mutant, SUBJECTS[name][1], limits): (name, mutant)
                   for name, mutants in chosen.items() for mutant in mutants}
        for done in concurrent.futures.as_completed(waiting):
            name, mutant = waiting[done]
            results.setdefault(name, []).append((mutant, done.result()))
            if done.result() == "survived":
                print(f"survived: {mutant.file}:{mutant.line}\n- {mutant.before}\n+ {mutant.after}",
                      flush=True)
    return results


def report(results, listed, wanted):
    print("\n| folder | mutants | killed | survived | killed of these | equivalent | not compiled |")
    print("|---|---|---|---|---|---|---|")
    rows = {name: [outcome for _, outcome in results.get(name, [])] for name in listed}
    rows["all"] = [outcome for outcomes in rows.values() for outcome in outcomes]
    score = 0.0
    for name, outcomes in rows.items():
        killed, survived = outcomes.count("killed"), outcomes.count("survived")
        score = 100 * killed / max(1, killed + survived)
        equivalent = listed.get(name, sum(listed.values()))
        print(f"| {name} | {killed + survived} | {killed} | {survived} | {score:.1f} % "
              f"| {equivalent} | {outcomes.count('none')} |")
    return score >= wanted


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folders", nargs="*", choices=[*SUBJECTS, []], default=[],
                        help="all, unless some are named")
    parser.add_argument("--count", type=int, default=340, help="how many mutants (%(default)s)")
    parser.add_argument("--file", help="only those of this file")
    parser.add_argument("--again", help="only those that survived by this output of an earlier run")
    parser.add_argument("--seed", default="1", help="another seed chooses others (%(default)s)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--wanted", type=float, default=92, help="percent (%(default)s)")
    parser.add_argument("--list", action="store_true", help="print the chosen mutants only")
    options = parser.parse_args()

    names = options.folders or list(SUBJECTS)
    candidates, listed = collect(names)
    if options.file:
        candidates = {name: [mutant for mutant in mutants if mutant.file == options.file]
                      for name, mutants in candidates.items()}
    if options.again:
        survived = survivors_of(Path(options.again).read_text(encoding="utf-8"))
        candidates = {name: [mutant for mutant in mutants
                             if (mutant.file, mutant.before, mutant.after) in survived]
                      for name, mutants in candidates.items()}
    candidates = {name: mutants for name, mutants in candidates.items() if mutants}
    if not candidates:
        sys.exit("mutation: nothing to change")
    counts = share(candidates, options.count)
    chosen = {name: choose(mutants, counts[name], options.seed)
              for name, mutants in candidates.items()}
    if options.list:
        for mutants in chosen.values():
            for mutant in mutants:
                print(f"{mutant.file}:{mutant.line}\n- {mutant.before}\n+ {mutant.after}")
        return True
    configure_and_build(chosen)
    print(f"mutation: {sum(map(len, chosen.values()))} mutants of "
          f"{sum(map(len, candidates.values()))}, seed {options.seed}", flush=True)
    return report(run(chosen, options.jobs), {name: listed[name] for name in chosen}, options.wanted)


if __name__ == "__main__":
    sys.exit(0 if main() else 1)
