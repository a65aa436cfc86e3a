"""Writes docs/operations.md: which test shows each public operation of each exported class.

operations.py XML_FOLDER [--check]: Doxygen's XML gives the operations; the sources of the tests, the
fuzz targets and the applications are read as text. A test shows an operation when its body, or a
helper or fixture of tests/ that it mentions, calls it by name on an object that is known, or not
known to be something else, as one of that class, and its file names the class. Operations that no
test calls by name have their say in scripts/operations.txt.
"""

import re
import sys
import xml.etree.ElementTree as ElementTree
from collections import defaultdict
from pathlib import Path

from calls import Tests, View

PAGE = Path("docs/operations.md")
EXPLANATIONS = Path("scripts/operations.txt")
ROOMS = ["foundation", "io", "config", "power", "gsm", "bluetooth", "network", "scanner", "ui"]
NAMED = 2  # tests in a row of the table

HEAD = """# Operations and what shows them

Every public operation of every exported class, with tests that call it; `scripts/test -R NAME` runs
one. Where an operation has overloads, a row stands for all of them. Constructors and destructors are
left out: every test of a class uses them. So are operations without a body: they stand with the
classes that give them one. "Through `x`" and "in the course of" mean that no test
calls the operation itself, but the library does in what `x`, or the test, sets going.

This page is made by `scripts/operations`; `.ci/run` fails when it is not up to date, and when an
operation has neither a test nor an explanation in `scripts/operations.txt`.
"""


class Operation:
    def __init__(self, owner, name, is_virtual):
        self.owner, self.name, self.is_virtual = owner, name, is_virtual
        self.is_abstract = True  # until a form with a body is seen
        self.is_overridden = False  # by another class of the library
        self.returns = ""


class Exported:
    """A class of the library; or a header's free functions, under the header's name."""

    def __init__(self, name, room):
        self.name, self.room = name, room
        self.bases, self.operations = [], {}


def text_of(element, tag):
    found = element.find(tag)
    return "".join(found.itertext()) if found is not None else ""


def read_library(folder):
    library = {}
    for entry in ElementTree.parse(folder / "index.xml").getroot():
        kind, name = entry.get("kind"), text_of(entry, "name")
        if kind not in ("class", "struct", "file") or "::" in name:
            continue
        compound = ElementTree.parse(folder / f"{entry.get('refid')}.xml").getroot()[0]
        location = compound.find("location").get("file")
        parts = location.split("/")
        room = next((part for part in parts if part in ROOMS), None)
        if not room or (kind == "file" and not location.endswith(".h")):
            continue
        exported = Exported(name, room)
        exported.bases = [
            re.sub(r"<.*", "", base.text).strip() for base in compound.findall("basecompoundref")
        ]
        for member in compound.iter("memberdef"):
            read_operation(member, exported, kind == "file")
        if exported.operations or kind != "file":
            library[name] = exported
    for exported in library.values():
        for base in (library[base] for base in exported.bases if base in library):
            for name in exported.operations.keys() & base.operations.keys():
                base.operations[name].is_overridden = base.operations[name].is_virtual
    return library


def read_operation(member, exported, is_free):
    name = text_of(member, "name")
    own_name = exported.name.split("<")[0].strip()
    if member.get("kind") != "function" or member.get("prot") != "public":
        return
    if name in (own_name, "~" + own_name) or name.startswith("operator"):
        return
    if is_free and (member.get("static") == "yes" or "::" in text_of(member, "definition")):
        return
    is_virtual = member.get("virt") != "non-virtual"
    operation = exported.operations.setdefault(name, Operation(exported.name, name, is_virtual))
    operation.is_abstract = operation.is_abstract and member.get("virt") == "pure-virtual"
    operation.is_virtual = operation.is_virtual or is_virtual
    operation.returns = text_of(member, "type")


class Shown:
    """Which units of a kind of source show an operation."""

    def __init__(self, tests, wanted):
        self.library = tests.library
        self.views = [
            View(tests, source)
            for path, source in sorted(tests.sources.items())
            if path.suffix == ".cpp"
        ]
        self.found = defaultdict(list)  # by operation: (unit, whether it calls it itself)
        self.reached = defaultdict(set)  # by unit and class: the operations it goes through
        for exported in self.library.values():
            for operation in exported.operations.values():
                self.look(operation, wanted)

    def look(self, operation, wanted):
        for view in self.views:
            heirs = [name for name in self.library if operation.owner in view.ancestors(name)]
            view.is_named = any(view.names(heir) for heir in heirs)
            for unit in view.source.units:
                if not wanted(unit):
                    continue
                direct = view.calls(unit, operation)
                if direct or any(view.calls(helper, operation) for helper in view.reach(unit)[1:]):
                    self.found[operation].append((unit, direct))
                    self.reached[unit, operation.owner].add(operation)

    def tests(self, operation):
        """The units that show it, those first that are most about it."""
        owner = self.library[operation.owner]

        def rank(entry):
            unit, direct = entry
            path = unit.source.path
            return (
                owner.room not in path.parts,
                not path.stem.startswith(owner.name.replace(".h", "")),
                not direct,
                len(self.reached[unit, owner.name]),
            )

        return [unit for unit, _ in sorted(self.found[operation], key=rank)]


def read_explanations():
    """Of each line "CLASS::OPERATION,... via OPERATION", "... in TEST" or "... because REASON"."""
    explanations = {}
    for number, line in enumerate(EXPLANATIONS.read_text().splitlines(), 1):
        if not line or line.startswith("#"):
            continue
        parsed = re.fullmatch(r"([\w.]+)::([\w,]+) (via|in|because) (.+)", line)
        if not parsed:
            sys.exit(f"{EXPLANATIONS}:{number}: not understood: {line}")
        for name in parsed[2].split(","):
            explanations[parsed[1], name] = (parsed[3], parsed[4])
    return explanations


def names_of(units):
    names = list(dict.fromkeys(unit.name for unit in units))
    return ", ".join(f"`{name}`" for name in names[:NAMED])


class Page:
    def __init__(self, library):
        self.library = library
        self.tests = Shown(Tests(library, "tests"), lambda unit: unit.is_test)
        self.programs = {
            "fuzz target": Shown(Tests(library, "fuzz"), lambda unit: True),
            "demonstration": Shown(Tests(library, "apps"), lambda unit: True),
        }
        self.test_names = {
            unit.name for view in self.tests.views for unit in view.source.units if unit.is_test
        }
        self.explanations = read_explanations()
        self.complaints = []

    def elsewhere(self, operation):
        for kind, shown in self.programs.items():
            for unit in shown.tests(operation):
                return f"{kind} `{unit.source.path}`"
        return ""

    def row(self, exported, operation):
        key = (exported.name, operation.name)
        how, what = self.explanations.pop(key, (None, None))
        tests = names_of(self.tests.tests(operation))
        if tests:
            if how:
                self.complaints.append(f"{'::'.join(key)} has a test: no explanation is needed")
            return tests
        if how == "via":
            owner, _, name = what.rpartition("::")
            target = self.operation_of(owner or exported.name, name)
            tests = names_of(self.via(exported.name if not owner else owner, target))
            if tests:
                return f"through `{what}`: {tests}"
            self.complaints.append(f"{'::'.join(key)}: no test of {what}")
        elif how == "in":
            if what in self.test_names:
                return f"in the course of `{what}`"
            self.complaints.append(f"{'::'.join(key)}: no test {what}")
        elif how == "because":
            return f"none: {what}"
        else:
            other = self.elsewhere(operation)
            if other:
                return other
            self.complaints.append(f"{'::'.join(key)} has no test and no explanation")
        return "?"

    def operation_of(self, name, operation):
        """The operation of a class, also when it is a base's."""
        if name not in self.library:
            return None
        if operation in self.library[name].operations:
            return self.library[name].operations[operation]
        found = (self.operation_of(base, operation) for base in self.library[name].bases)
        return next((one for one in found if one), None)

    def via(self, name, target):
        """The tests of an operation that may be a base's, in the files that name the class."""
        found = self.tests.tests(target) if target else []
        found = [unit for unit in found if re.search(rf"\b{name}\b", unit.source.text)]
        return [unit for unit in found if unit.source.path.stem.startswith(name)] or found

    def text(self):
        lines = [HEAD]
        for room in ROOMS:
            lines.append(f"## {room}\n")
            for exported in sorted(self.library.values(), key=lambda one: one.name.lower()):
                if exported.room != room:
                    continue
                rows = [
                    f"| `{operation.name}` | {self.row(exported, operation)} |"
                    for operation in exported.operations.values()
                    if not operation.is_abstract
                ]
                if rows:
                    lines += [f"### {exported.name}\n", "| Operation | Shown by |", "|---|---|"]
                    lines += rows + [""]
        for key in self.explanations:
            self.complaints.append(f"{'::'.join(key)} is explained, but there is no such operation")
        return "\n".join(lines)


def main():
    folder, check = Path(sys.argv[1]), sys.argv[2:] == ["--check"]
    page = Page(read_library(folder))
    text = page.text()
    if not check:
        PAGE.write_text(text)
    elif not PAGE.is_file() or PAGE.read_text() != text:
        page.complaints.append(f"{PAGE} is not up to date: run scripts/operations")
    for complaint in page.complaints:
        print(complaint, file=sys.stderr)
    sys.exit(1 if page.complaints else 0)


main()
