#!/usr/bin/env python3
"""Tries the tests on one-line faults, the mutants of mutants.txt.

All mutants are compiled into one build of a copy of the tree; an environment variable chooses the
one that runs (mutant.h). The tests first run without a mutant, which all have to pass and which
notes the mutants that each test reaches. Each mutant then runs in the tests that reach it, the
shortest first, until one fails, crashes or exceeds its time. outcome.txt says for each mutant
what killed it; it is written unless the script ends with an error.

Exit code: 0; 1 if a row's text is not found exactly once, the build or a test fails without a
mutant, or a mutant survives that outcome.txt says was killed.
"""
import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
OUTCOME = HERE / "outcome.txt"
BUILD = "build/release"
NOT_PRODUCT = {"tests", "fuzz", "bench", "assurance"}
# The programs with the tests that run. Those that compile the sources once more, need a browser or
# take minutes are left out.
TARGETS = ("effect_test", "pipeline_test", "changeover_test", "upmix_lib_test",
           "upmix_lib_memory_test", "soak", "tools_test", "doctor_test", "clicks", "sound_instruments_test",
           "hal_test")
SURVIVED = "survived"

Mutant = collections.namedtuple("Mutant", "number name file before original mutated after")


def read_mutants():
    """Rows of `name file: before«original → mutated»after`."""
    lines = [line for line in (HERE / "mutants.txt").read_text().splitlines()
             if line and not line.startswith("#")]
    row = re.compile(r"(\S+) +(\S+): (.*)«(.+) → (.+)»(.*)")
    mutants = [Mutant(number, *row.fullmatch(line).groups())
               for number, line in enumerate(lines, 1)]
    if len({mutant.name for mutant in mutants}) != len(mutants):
        sys.exit("mutants.txt: a name twice")
    return mutants


def both(mutant):
    """The original and the mutated text as one, which mutant.h chooses from."""
    chosen, original, mutated = f"kelda_mutant({mutant.number})", mutant.original, mutant.mutated
    if original.startswith("constexpr "):
        name, value = original.removeprefix("constexpr ").rstrip(";").split(" = ")
        return f"static const {name} = {chosen} ? {mutated} : {value};"
    if original.endswith(";"):
        return f"{{ if ({chosen}) {{ {mutated} }} else {{ {original} }} }}"
    return f"({chosen} ? ({mutated}) : ({original}))"


def source_files():
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-co", "--exclude-standard"],
                            capture_output=True, text=True, check=True).stdout.splitlines()
    return [path for path in listed if (ROOT / path).is_file()]


def read_tree():
    return {path: (ROOT / path).read_bytes() for path in source_files()}


def find_rows(mutants, texts):
    """Each mutant's room, and by file where its mutants are and what stands there instead."""
    product = [path for path in texts if path.endswith((".cc", ".h"))
               and not NOT_PRODUCT & set(pathlib.PurePath(path).parts)]
    rooms, changes = {}, collections.defaultdict(list)
    for mutant in mutants:
        # Blanks and line ends may differ.
        before, original, after = ((r"\s+".join(map(re.escape, re.split(r"\s+", part))))
                                   for part in (mutant.before, mutant.original, mutant.after))
        wanted = re.compile(f"{before}({original}){after}")
        found = [(path, match.span(1)) for path in product
                 if pathlib.PurePath(path).name == mutant.file
                 for match in wanted.finditer(texts[path].decode())]
        if len(found) != 1:
            print(f"{mutant.name}: its text is {len(found)} times in {mutant.file}")
            continue
        path, span = found[0]
        rooms[mutant.name] = str(pathlib.PurePath(path).parent)
        changes[path].append((*span, both(mutant)))
    if len(rooms) != len(mutants):
        sys.exit(1)
    return rooms, changes


def copy_tree(target, mutants):
    """Copies the tree with the mutants in it, touching only what changed. Returns each mutant's
    room."""
    texts = read_tree()
    rooms, changes = find_rows(mutants, texts)
    for path, spans in changes.items():
        text = texts[path].decode()
        for begin, end, replacement in sorted(spans, reverse=True):
            text = text[:begin] + replacement + text[end:]
        to_root = "../" * path.count("/")
        texts[path] = f'#include "{to_root}assurance/mutants/mutant.h"\n{text}'.encode()
    for old in [path for path in target.rglob("*") if path.is_file()]:
        name = str(old.relative_to(target))
        if name not in texts and not name.startswith("build/"):
            old.unlink()
    for path, text in texts.items():
        copy = target / path
        if not copy.exists() or copy.read_bytes() != text:
            copy.parent.mkdir(parents=True, exist_ok=True)
            copy.write_bytes(text)
            copy.chmod((ROOT / path).stat().st_mode)
    return rooms


def build(scratch, jobs):
    subprocess.run(["cmake", "--preset", "release", "-DKELDA_BUILD_BENCHMARKS=OFF"], cwd=scratch,
                   check=True, stdout=subprocess.DEVNULL)
    if subprocess.run(["cmake", "--build", scratch / BUILD, "-j", str(jobs), "--target",
                       *TARGETS]).returncode:
        sys.exit("the build fails")


class Test:
    def __init__(self, entry, folder):
        self.name, self.command = entry["name"].split(" ")[0], entry["command"]
        properties = {item["name"]: item["value"] for item in entry.get("properties", [])}
        self.directory = properties.get("WORKING_DIRECTORY", folder)
        self.environment = dict(item.split("=", 1) for item in properties.get("ENVIRONMENT", []))
        self.seconds, self.reached = 0.0, set()

    def run(self, temporary, mutant, limit_s, trace=""):
        """Returns "" or how it failed. `temporary` is emptied before."""
        shutil.rmtree(temporary, ignore_errors=True)
        temporary.mkdir(parents=True)
        environment = {**os.environ, **self.environment, "TMPDIR": str(temporary),
                       "KELDA_MUTANT": str(mutant), "KELDA_MUTANT_TRACE": str(trace)}
        process = subprocess.Popen(self.command, cwd=self.directory, env=environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL, start_new_session=True)
        try:
            code = process.wait(limit_s)
            return "" if code == 0 else f"signal {-code}" if code < 0 else f"exit code {code}"
        except subprocess.TimeoutExpired:
            return "time limit"
        finally:
            try:
                os.killpg(process.pid, signal.SIGKILL)  # with what it started
            except ProcessLookupError:
                pass
            process.wait()

    def run_without_mutant(self, temporary):
        """Returns whether it passes; notes its time and the mutants that it reaches."""
        trace = temporary.with_suffix(".trace")
        trace.write_text("")
        begin = time.monotonic()
        failure = self.run(temporary, -1, 1800, trace)
        self.seconds = time.monotonic() - begin
        self.reached = set(map(int, trace.read_text().split()))
        if failure:  # as a test of calls or memory does, which the notes disturb
            failure = self.run(temporary, 0, 1800)
        if failure:
            print(f"fails without a mutant: {self.name}: {failure}", flush=True)
        return not failure


def find_tests(scratch):
    shown = subprocess.run(["ctest", "--test-dir", scratch / BUILD, "--show-only=json-v1"],
                           capture_output=True, text=True, check=True).stdout
    return [Test(entry, scratch / BUILD) for entry in json.loads(shown)["tests"]
            if pathlib.Path(entry.get("command", [""])[0]).name in TARGETS]


def in_parallel(work, items, jobs, scratch):
    """Calls work(item, temporary folder) for each; the folder is the thread's own."""
    own = threading.local()
    folders = iter(scratch / f"build/tmp{number}" for number in range(jobs))

    def begin():
        own.folder = next(folders)

    with concurrent.futures.ThreadPoolExecutor(jobs, initializer=begin) as pool:
        return list(pool.map(lambda item: work(item, own.folder), items))


def read_outcome():
    lines = OUTCOME.read_text().splitlines() if OUTCOME.exists() else []
    return {line.split()[0]: line.split(maxsplit=2)[2] for line in lines
            if line and not line.startswith("#")}


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--only", default="", metavar="REGEX", help="only mutants of these names")
    parser.add_argument("--scratch", type=pathlib.Path, default=ROOT / "build" / "mutants",
                        help="where it builds (build/mutants)")
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--check", action="store_true",
                        help="only look for the text of each row, which takes a second")
    arguments = parser.parse_args()
    scratch, jobs = arguments.scratch.absolute(), arguments.jobs
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    resource.setrlimit(resource.RLIMIT_FSIZE, (8 << 30, 8 << 30))  # of a mutant that never ends

    mutants, before = read_mutants(), read_outcome()
    if arguments.check:
        find_rows(mutants, read_tree())
        return
    rooms = copy_tree(scratch, mutants)
    build(scratch, jobs)
    tests = find_tests(scratch)
    print(f"{len(mutants)} mutants, {len(tests)} tests", flush=True)
    if not all(in_parallel(Test.run_without_mutant, tests, jobs, scratch)):
        sys.exit(1)
    tests.sort(key=lambda test: test.seconds)

    def attempt(mutant, temporary):
        """Returns what kills the mutant."""
        killer = SURVIVED
        for test in tests:
            if mutant.number in test.reached:
                if failure := test.run(temporary, mutant.number, 30 + 10 * test.seconds):
                    killer = f"{test.name} ({failure})"
                    break
        print(f"{mutant.name:18} {killer}", flush=True)
        return mutant.name, killer

    wanted = [mutant for mutant in mutants if re.search(arguments.only, mutant.name)]
    outcome = before | dict(in_parallel(attempt, wanted, jobs, scratch))
    survivors = [mutant.name for mutant in wanted if outcome[mutant.name] == SURVIVED]
    lost = [name for name in survivors if before.get(name, SURVIVED) != SURVIVED]
    print(f"{len(wanted) - len(survivors)} of {len(wanted)} killed")
    print("survivors:", *survivors)
    if lost:  # what they were killed by stays written down, so that the next run says so, too
        sys.exit("killed before: " + " ".join(lost))
    OUTCOME.write_text("# mutant, room, what killed it; written by run.py\n" + "".join(
        f"{mutant.name:18} {rooms[mutant.name]:20} {outcome[mutant.name]}\n"
        for mutant in mutants if mutant.name in outcome))


if __name__ == "__main__":
    main()
