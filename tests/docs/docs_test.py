#!/usr/bin/python3
"""docs_test.py SOURCES TU: holds the documents against the program.

Every key, event, check, fault and reference type that the scenario reader knows is in docs/scenarios.md, and none
that it doesn't; every field that kvdinfo prints is in docs/kvdinfo.md; every page is linked, every link leads
somewhere; every place and test that docs/decisions.md names is there.
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(sys.argv[1])
TU = sys.argv[2]
DOCS = ROOT / "docs"
wrong = []

GETTERS = r"(?:text|number|notNegative|integer|boolean|seconds|texts|numbers|table|tables|dateTime|has|row|choice(?:<[^>]*>)?)"
TABLES = r"(?:t|r|w|top|unit|c\.table|context\.table)"


def missing(what, these, there):
    for name in sorted(these - there):
        wrong.append(f"{what}: {name}")


def text_of(*patterns):
    return "\n".join(p.read_text(encoding="utf-8") for pattern in patterns for p in sorted(ROOT.glob(pattern)))


def scenario_words():
    code = text_of("sim/scenario/scenario*.cpp", "app/check_kinds.cpp")
    page = (DOCS / "scenarios.md").read_text(encoding="utf-8")
    named = set(re.findall(r"[a-z][a-z0-9_]*", page))

    keys = set(re.findall(rf"\b{TABLES}\.{GETTERS}\(\s*\"([a-z][a-z0-9_]*)\"", code))
    keys |= set(re.findall(rf"\b\w+\(\s*{TABLES}\s*,(?:[^\"();]*,)?\s*\"([a-z][a-z0-9_]*)\"", code))
    keys |= set(re.findall(r"\btake\(\"([a-z][a-z0-9_]*)\"", code))
    missing("docs/scenarios.md doesn't know the key", keys, named)

    example = "\n".join(re.findall(r"^    (?!\|)(.*)$", page, re.M))
    used = set(re.findall(r"^#? ?([a-z][a-z0-9_]*) = ", example, re.M))
    for heading in re.findall(r"^\[+([a-z_.]+)\]+", example, re.M):
        used.add(heading.split(".")[-1])
    missing("docs/scenarios.md has a key that the reader doesn't", used, set(re.findall(r"\"([a-z][a-z0-9_]*)\"", code)))

    kinds = "input|oscillator|temperature|mp|node|unit|board|gps|cmcc|ntp|ipsync|esmc|slowpi|bira|idpi|link|master|" \
            "path|group|inrsi|ngpduhif|pktsync|cfi|socket|driver|radio|syncgroup|hptsi"
    events = {w for w in re.findall(rf"\"((?:{kinds})\.[a-z_0-9]+)\"", code)}
    told = set(re.findall(rf"`((?:{kinds})\.[a-z_0-9]+)`", page)) | set(re.findall(r"do = \"([a-z_.0-9]+)\"", page))
    missing("docs/scenarios.md doesn't know the event", events, told)
    missing("docs/scenarios.md has an event that the reader doesn't", told, events)

    rows = re.findall(r"^    \{\"([a-z_]+)\",\s+read", code, re.M)
    assert len(rows) > 20, "the table of checks wasn't found"
    checks = page[page.index("\n## Checks"):]
    table = {w for row in re.findall(r"^\| (`[^|]*) \|", checks, re.M) for w in re.findall(r"`([a-z_]+)`", row)}
    missing("docs/scenarios.md doesn't know the check", set(rows), table)
    missing("docs/scenarios.md has a check that the reader doesn't", table, set(rows))

    for body in re.findall(r"\b(?:FAULTS|SERVICES|INPUTS)\[\] = \{(.*?)^\};", code, re.M | re.S):
        words = set(re.findall(r"^\s+\{\"([a-z_0-9]+)\"", body, re.M))
        missing("docs/scenarios.md doesn't know the word", words, named | {"pdh1", "pdh2", "pdh3", "pdh4"})

    names = text_of("sim/node/main_processor*.cpp", "sim/node/*.cpp")
    types = {n for n in re.findall(r"\"([A-Z0-9_]+_REF)\"", names)} - {"NO_REF"}
    assert len(types) > 8, "the reference types weren't found"
    listed = {n for row in re.findall(r"^\| (`[A-Z][^|]*_REF`) \|", page, re.M) for n in re.findall(r"[A-Z0-9_]+_REF", row)}
    missing("docs/scenarios.md doesn't list the reference type", types, listed)
    missing("docs/scenarios.md lists a reference type that isn't", listed, types)


def kvdinfo_fields():
    page = (DOCS / "kvdinfo.md").read_text(encoding="utf-8")
    known = {f for row in re.findall(r"^\| (`.*?) \| ", page, re.M) for f in re.findall(r"`([^`]+)`", row)}
    patterns = "|".join(re.escape(f).replace(r"\*", ".*") for f in known)   # "numberOf*" stands for many
    run = subprocess.run([TU, "run", str(ROOT / "scenarios/first-lock.toml"), "--shell"], input="kvdinfo all\nquit\n",
                         capture_output=True, text=True, timeout=60, check=False)
    fields = set()
    for line in run.stdout.splitlines():
        field = re.match(r" {2,6}([A-Za-z][^:|]{0,32}?) *:(?: |$)", line)
        if field and re.search(r"[a-z]", field.group(1)):
            fields.add(field.group(1))
    if len(fields) < 150:
        wrong.append(f"kvdinfo all printed {len(fields)} fields only")
    missing("docs/kvdinfo.md doesn't know the field", {f for f in fields if not re.fullmatch(patterns, f)}, known)


def anchors(page):
    heads = re.findall(r"^#+ (.*)$", page.read_text(encoding="utf-8"), re.M)
    return {re.sub(r"[^\w\- ]", "", h.lower()).replace(" ", "-") for h in heads}


def links():
    seen, queue = set(), [ROOT / "README.md"]
    while queue:
        page = queue.pop()
        seen.add(page)
        if page.suffix != ".md":
            continue
        for target in re.findall(r"\]\(([^)\s]+)\)", page.read_text(encoding="utf-8")):
            if re.match(r"[a-z]+:", target):
                continue
            name, _, anchor = target.partition("#")
            to = (page.parent / name).resolve() if name else page
            if not to.exists():
                wrong.append(f"{page.relative_to(ROOT)}: the link {target} leads nowhere")
            elif anchor and to.suffix == ".md" and anchor not in anchors(to):
                wrong.append(f"{page.relative_to(ROOT)}: {target}: there is no such heading")
            elif to not in seen and to.is_file():
                queue.append(to)
    for page in sorted(DOCS.iterdir()):
        if page not in seen:
            wrong.append(f"no page links {page.relative_to(ROOT)}")


def decisions():
    files = {p.name: p for d in ("src", "sim", "app", "scripts") for p in ROOT.glob(d + "/**/*") if p.is_file()}
    held = {p.stem for p in ROOT.glob("scenarios/*.toml")}
    for suite, name in re.findall(r"^TEST(?:_F|_P)?\((\w+), *(\w+)", text_of("tests/**/*_test.cpp"), re.M):
        held |= {suite, f"{suite}.{name}"}
    entries = re.findall(r"^- \*\*.*?(?=\n- |\n\n|\Z)", (DOCS / "decisions.md").read_text(encoding="utf-8"), re.M | re.S)
    assert len(entries) > 100, "the decisions weren't found"
    for entry in (" ".join(e.split()) for e in entries):
        place, _, by = entry[entry.rindex(" ("):].rstrip(")").partition(";")
        code = ""
        for file, function in re.findall(r"`([^`]+)`|(?<![\w#/.])([A-Za-z]\w*(?:::\w+)*)", re.sub(r"\[.*\]\(.*", "", place)):
            path = files.get(file.split("/")[-1]) if file else None
            if file and path is None:
                wrong.append(f"docs/decisions.md: there is no {file}: {entry[:60]}")
            elif file:
                code = path.read_text(encoding="utf-8")
            elif code and not re.search(rf"\b{function.split('::')[-1]}\(", code):
                wrong.append(f"docs/decisions.md: no {function} there: {entry[:60]}")
        for name in re.findall(r"`([^`/]+)`", by):
            if name not in held:
                wrong.append(f"docs/decisions.md: there is no test or scenario {name}: {entry[:60]}")


ROOT = ROOT.resolve()
DOCS = ROOT / "docs"
scenario_words()
links()
decisions()
kvdinfo_fields()
print("\n".join(wrong))
sys.exit(1 if wrong else 0)
