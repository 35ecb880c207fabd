#!/usr/bin/env python3
"""Reads the #include lines of the tree and compares them with the arrows of docs/architecture.md.

usage: check_includes.py ROOT

A row of ALLOWED says which folders a folder's files may include. Some sources, never headers, look back up at the
registry: they are named in LOOKING_UP. Exit 1 with a line for each wrong arrow.
"""

import pathlib
import re
import sys

BELOW_ENGINE = {"host"}
MODULE = ["host", "log", "actions", "timetable", "publish", "engine", "check", "editors"]
ALLOWED = {
    "host": {"host"},
    "log": BELOW_ENGINE | {"log"},
    "actions": BELOW_ENGINE | {"actions"},
    "timetable": BELOW_ENGINE | {"timetable"},
    "publish": BELOW_ENGINE | {"publish"},
    "engine": {"host", "log", "actions", "timetable", "publish", "engine"},
    "check": {"host", "log", "actions", "timetable", "publish", "engine", "check"},
    "editors": {"host", "log", "actions", "timetable", "publish", "engine", "editors"},
    "suite": {"host", "suite"},
    "apps/corvane": {"host", "log", "actions", "timetable", "publish", "engine", "check", "suite", "apps/corvane"},
    "apps/config": {"host", "engine", "check", "editors", "suite", "apps/config"},
}

# Sources that may include headers of engine/: members of the engine's classes that belong to a subsystem, and those that
# ask the registry by name.
LOOKING_UP = [
    r"(log|actions|publish)/KTEventDriver\w*\.cpp",
    r"(log|actions|publish)/KTEventServer\w*\.cpp",
    r"publish/KTEventSystem\w*\.cpp",
    r"actions/KTEventAction\w+\.cpp",
    r"log/KTEventLogger\w*\.cpp",
    r"log/(KTTransformEventsFilesTo27|RenameEventsFilesDataName)\.cpp",
    r"timetable/KTTimeTable(Week|Calendar)\.cpp",
]
OF_THE_SYSTEM = re.compile(r"^(sys/|arpa/|net/|netinet/|linux/|unistd\.h|fcntl\.h|pthread\.h|signal\.h|windows\.h|Q[A-Z])")
INCLUDE = re.compile(r'^\s*#\s*include\s*(?:"([^"]+)"|<([^>]+)>)', re.MULTILINE)


def folder_of(path):
    for folder in sorted(ALLOWED, key=len, reverse=True):
        if path.startswith(folder + "/"):
            return folder
    return None


def wrong_arrows(root, files):
    for path in files:
        folder = folder_of(path)
        text = (root / path).read_text(encoding="utf-8")
        for own, system in INCLUDE.findall(text):
            if system:
                if folder in MODULE and path.endswith(".h") and OF_THE_SYSTEM.match(system):
                    yield f"{path}: a header of the module includes <{system}>"
                continue
            target = folder_of(own)
            if target is None or not (root / own).is_file():
                yield f'{path}: "{own}" is not a path from the root of the tree'
            elif target not in ALLOWED[folder]:
                looks_up = target == "engine" and any(re.fullmatch(row, path) for row in LOOKING_UP)
                if not looks_up:
                    yield f'{path}: {folder}/ may not include "{own}"'


def circles(root, files):
    headers = {path: [own for own, _ in INCLUDE.findall((root / path).read_text(encoding="utf-8")) if own]
               for path in files if path.endswith(".h")}
    done, trail = set(), []

    def visit(path):
        if path in trail:
            yield "headers form a circle: " + " -> ".join(trail[trail.index(path):] + [path])
            return
        if path in done or path not in headers:
            return
        trail.append(path)
        for own in headers[path]:
            yield from visit(own)
        trail.pop()
        done.add(path)

    for path in headers:
        yield from visit(path)


def own_header_first(root, files):
    for path in files:
        header = re.sub(r"\.cpp$", ".h", path)
        if path.endswith(".cpp") and header in files:
            first = INCLUDE.search((root / path).read_text(encoding="utf-8"))
            if first is None or first.group(1) != header:
                yield f'{path}: includes "{header}" not first'


def main():
    root = pathlib.Path(sys.argv[1])
    files = sorted(str(path.relative_to(root)) for folder in ALLOWED for path in (root / folder).rglob("*")
                   if path.suffix in (".h", ".cpp"))
    if not files:
        print("no sources found below", root)
        return 2
    faults = [*wrong_arrows(root, files), *circles(root, files), *own_header_first(root, files)]
    for fault in faults:
        print(fault)
    print(f"{len(files)} files read, {len(faults)} wrong")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
