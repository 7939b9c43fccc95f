#!/usr/bin/env python3
"""check_rooms.py ROOMS SOURCE: reads every #include of the project and reports what the order of
rooms in the file ROOMS forbids: an include of another room that does not lie on a lower floor, so
that no rooms include each other in a circle, code in no room, and a folder with more than 30 files
of code."""

import os
import re
import sys

MOST_FILES = 30
CODE = (".cc", ".h", ".py", ".js")
NOT_OURS = {"build", "node_modules", "corpus"}
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


def read_order(path):
    """Returns the floor of each room, and the exceptions, each as its words."""
    floors, exceptions = {}, set()
    floor = 0
    for line in open(path, encoding="utf-8"):
        words = line.split("#")[0].split()
        if words[:1] == ["except"]:
            exceptions.add(" ".join(words[1:]))
        elif words:
            floor += 1
            floors.update((room, floor) for room in words)
    return floors, exceptions


def code_below(source):
    """The files of code, as paths from SOURCE."""
    for folder, names, files in os.walk(source):
        names[:] = sorted(name for name in names if name not in NOT_OURS and name[0] != ".")
        for name in sorted(files):
            if name.endswith(CODE):
                yield os.path.relpath(os.path.join(folder, name), source)


def room_of(path, floors):
    """The room that a file lies in, or nothing."""
    while path and path not in floors:
        path = os.path.dirname(path)
    return path


def included(path, source, known):
    """The files of the project that a file includes."""
    with open(os.path.join(source, path), encoding="utf-8") as file:
        for match in INCLUDE.finditer(file.read()):
            name = match[1] or match[2]
            for folder in ("", "platform/include", os.path.dirname(path)):
                target = os.path.normpath(os.path.join(folder, name))
                if target in known:
                    yield target
                    break


def check(order, source):
    """Returns what is wrong, a line each, and how many includes were read."""
    floors, exceptions = read_order(order)
    files = list(code_below(source))
    known, needed, problems, count, in_folder = set(files), set(), [], 0, {}
    for path in files:
        in_folder.setdefault(os.path.dirname(path), []).append(path)
        room = room_of(path, floors)
        if not room:
            problems.append(f"{path}: in no room of {order}")
            continue
        for target in included(path, source, known):
            count += 1
            other = room_of(target, floors)
            if not other or other == room:
                continue
            if f"{room} -> {other}" in exceptions:
                needed.add(f"{room} -> {other}")
                continue
            if floors[other] >= floors[room]:
                problems.append(f"{path}: includes {target}; {other} is not below {room}")
    for folder, members in in_folder.items():
        if len(members) > MOST_FILES and f"full {folder}" in exceptions:
            needed.add(f"full {folder}")
        elif len(members) > MOST_FILES:
            problems.append(f"{folder}: {len(members)} files of code; {MOST_FILES} at most")
    problems += [f"no longer needed: except {line}" for line in sorted(exceptions - needed)]
    return problems, count


def main():
    problems, count = check(*sys.argv[1:])
    print(f"{count} includes of the project's own files")
    for problem in problems:
        print(problem)
    return 1 if problems or not count else 0


sys.exit(main())
