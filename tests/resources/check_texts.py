#!/usr/bin/python3
"""Checks the language texts: every *.tsv of the resources directory against ids.tsv beside this file.

Usage: check_texts.py [RESOURCES_DIRECTORY]

Prints one line per fault, `FILE:LINE: what is wrong`, and exits with 1; with 0 when there is none. What ids.tsv lists is
what the program asks for: a text it doesn't find would stand empty in front of an operator, and one with other
placeholders would print a wrong word or read memory that isn't its own.
"""

import re
import sys
from pathlib import Path

HERE = Path(__file__).resolve().parent
DEFAULT_DIRECTORY = HERE.parent.parent / "resources"
IDS_FILE = HERE / "ids.tsv"

KEY = re.compile(r"(E?)(0|[1-9][0-9]*)")
PLACEHOLDER = re.compile(r"%.?")  # every % counts, so a stray one is a placeholder too many
ESCAPE = re.compile(r"\\(.?)")

# Pieces of a warning of the configuration check, which prints each warning on one line with tabs between its fields.
ONE_LINE = {
    "767", "32085", "32401", "32446", "32449", "32452", "32485", "32831", "32832", "32833", "32834", "32838", "32850",
    "32878", "32879", "32882", "32883", "34053", "34054", "34055", "34106", "34107", "34112", "34117", "34118", "34141",
    "34174", "34175", "E0", "E40", "E41", "E42", "E43", "E50", "E51", "E62",
}


def sort_key(key):
    """Numbers by value, the E keys behind them; None for what is no key."""
    match = KEY.fullmatch(key)
    return (match[1] == "E", int(match[2])) if match else None


def load_ids(path):
    """The list of ids: key -> placeholders, in their order."""
    ids = {}
    for line in path.read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            key, _, placeholders = line.partition("\t")
            ids[key] = placeholders.split()
    return ids


def repeats_key(key, text):
    """True for 32446, "#32446", "Text 32446" and the like: nothing but the number and a word that says so."""
    bare = re.sub(r"[\W_]", "", text).lower()
    return re.fullmatch(r"(id|text|string|stringid|error|todo)?" + key.lower(), bare) is not None


def text_faults(key, text, ids):
    """What is wrong with one text of a known id."""
    if not text.strip():
        return ["the text is empty"]
    faults = []
    if repeats_key(key, text):
        faults.append("the text only repeats its number")
    if text != text.strip():
        faults.append("blanks at the beginning or the end of the text")
    if any(ord(c) < 0x20 or ord(c) == 0x7F for c in text):
        faults.append("a raw tab or control character in the text; write \\t or \\n")
    bad = [m[0] for m in ESCAPE.finditer(text) if m[1] not in ("n", "t", "\\")]
    if bad:
        faults.append(f"bad escape {' '.join(bad)}; only \\n, \\t and \\\\ exist")
    found = PLACEHOLDER.findall(text)
    if found != ids[key]:
        faults.append(f"placeholders are [{' '.join(found)}], must be [{' '.join(ids[key])}]")
    if key in ONE_LINE and any(m[1] in ("n", "t") for m in ESCAPE.finditer(text)):
        faults.append("a piece of a one-line warning can't hold \\n or \\t")
    return faults


def read_lines(path, faults):
    """The lines of a file, numbered; what isn't valid UTF-8 is reported and left out."""
    data = path.read_bytes()
    if data.startswith(b"\xef\xbb\xbf"):
        faults.append(f"{path.name}:1: a byte order mark at the beginning")
        data = data[3:]
    if not data.endswith(b"\n"):
        faults.append(f"{path.name}: the last line has no line end")
    for number, raw in enumerate(data.removesuffix(b"\n").split(b"\n"), start=1):
        try:
            yield number, raw.decode("utf-8")
        except UnicodeDecodeError:
            faults.append(f"{path.name}:{number}: invalid UTF-8")


def check_file(path, ids, faults):
    """Checks one language; returns its texts, key -> text."""
    texts = {}
    last = None
    for number, line in read_lines(path, faults):
        where = f"{path.name}:{number}: "
        if line.startswith("#"):
            continue
        key, tab, text = line.partition("\t")
        order = sort_key(key)
        if not tab or order is None:
            faults.append(where + "not ID<TAB>TEXT")
            continue
        if key in texts:
            faults.append(where + f"duplicate id {key}")
            continue
        if last is not None and order < last:
            faults.append(where + f"unsorted: {key} stands behind a greater id")
        last = order if last is None else max(last, order)
        texts[key] = text
        if key in ids:
            faults += [where + f"{key}: {fault}" for fault in text_faults(key, text, ids)]
        else:
            faults.append(where + f"unknown id {key}")
    faults += [f"{path.name}: missing id {key}" for key in ids if key not in texts]
    return texts


def compare_languages(languages, faults):
    """Every language must have the same ids as all the others, whatever ids.tsv says."""
    every = set().union(*languages.values())
    for name, texts in languages.items():
        lacking = sorted(every - texts.keys(), key=sort_key)
        if lacking:
            faults.append(f"{name}: lacks what other languages have: {' '.join(lacking)}")


def note_untranslated(languages):
    """Equal texts are no fault, since words can be equal; but whoever translates should look at them once."""
    english = languages.get("en.tsv", {})
    for name, texts in languages.items():
        same = [key for key in texts if name != "en.tsv" and texts[key] == english.get(key)]
        if same:
            print(f"note: {name}: as in English: {', '.join(f'{key} {texts[key]}' for key in same)}")


def check_directory(directory, ids):
    """All faults of a resources directory, as lines."""
    files = sorted(directory.glob("*.tsv"))
    if not files:
        return [f"{directory}: no *.tsv here"]
    faults = []
    languages = {path.name: check_file(path, ids, faults) for path in files}
    compare_languages(languages, faults)
    note_untranslated(languages)
    if not faults:
        print(f"{len(files)} languages, {len(ids)} texts each: good")
    return faults


def main(arguments):
    if len(arguments) > 1 or any(a.startswith("-") for a in arguments):
        print(__doc__, file=sys.stderr)
        return 2
    directory = Path(arguments[0]) if arguments else DEFAULT_DIRECTORY
    faults = check_directory(directory, load_ids(IDS_FILE))
    for fault in faults:
        print(fault)
    if faults:
        print(f"{len(faults)} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
