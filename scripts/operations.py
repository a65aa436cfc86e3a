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


# ---- The tests, as text.

LITERAL = re.compile(
    r'R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])\'|//[^\n]*|/\*.*?\*/', re.S
)
TEST = re.compile(r"\bTEST(_F|_P)?\s*\(\s*(\w+)\s*,\s*(\w+)\s*\)\s*$")
CLASS = re.compile(r"\b(?:class|struct)\s+(\w+)(?:\s+final)?\s*(?::([^{]*))?$", re.S)
NAMESPACE = re.compile(r"\bnamespace\b[\w\s:]*$")
FUNCTION = re.compile(r"(~?\w+)\s*\(")
VARIABLE = re.compile(r"(\w+)\s*(?:\[[^\]]*\]\s*)?=?\s*$")


class Unit:
    """A test, or a function of a helper: `owner` is the class it stands in, or a test's fixture."""

    def __init__(self, name, owner, body, is_test=False):
        self.name, self.owner, self.body, self.is_test = name, owner, body, is_test
        self.words = set(re.findall(r"\w+", body))
        self.source = None


class Source:
    def __init__(self, path, root):
        self.path = path
        raw = path.read_text()
        self.includes = []
        for included in re.findall(r'#include "([^"]+)"', raw):
            self.includes += [p for p in (root / included, path.parent / included) if p.is_file()]
        text = LITERAL.sub(lambda match: '""' if match[0][0] in "\"R" else " ", raw)
        self.text = re.sub(r"^\s*#.*$", "", text, flags=re.M)
        self.units, self.bases = [], {}
        self.scan(self.text, 0, len(self.text), None)
        for unit in self.units:
            unit.source = self

    def scan(self, text, at, end, owner):
        """Cuts the declarations between `at` and `end` into units."""
        begin, depth = at, 0  # of round brackets
        while at < end:
            depth += (text[at] == "(") - (text[at] == ")")
            if text[at] == "{" and depth > 0:
                at = self.closing(text, at)
            elif text[at] in ";}":
                begin = at + 1
            elif text[at] == "{":
                close = self.closing(text, at)
                self.take(text, begin, at, close, owner)
                at = close
                # The braces of an initialiser do not end a constructor's head.
                if text[close + 1 :].lstrip()[:1] not in (",", "{"):
                    begin = close + 1
            at += 1

    def take(self, text, begin, brace, close, owner):
        head = re.sub(r"\b(public|private|protected)\s*:(?!:)", "", text[begin:brace]).strip()
        body = text[brace : close + 1]
        test = TEST.search(head)
        declared = CLASS.search(head)
        if test:
            fixture = test[2] if test[1] else None
            self.units.append(Unit(f"{test[2]}.{test[3]}", fixture, body, is_test=True))
        elif NAMESPACE.search(head) and "(" not in head:
            self.scan(text, brace + 1, close, owner)
        elif declared and "(" not in declared[0]:
            bases = re.sub(r"\b(public|protected|private|virtual)\b", "", declared[2] or "")
            self.bases[declared[1]] = [
                [word for word in re.findall(r"\w+", base) if word not in ("test", "testing", "sim")]
                for base in bases.split(",")
            ]
            self.scan(text, brace + 1, close, declared[1])
        elif FUNCTION.search(head):
            named = FUNCTION.search(head)
            self.units.append(Unit(named[1], owner, head[named.end() :] + body))
        else:
            variable = VARIABLE.search(head)
            if variable:
                self.units.append(Unit(variable[1], owner, body))

    @staticmethod
    def closing(text, at):
        depth = 0
        for index in range(at, len(text)):
            depth += (text[index] == "{") - (text[index] == "}")
            if depth == 0:
                return index
        return len(text) - 1


class Tests:
    def __init__(self, library, folder, pattern="*.cpp"):
        self.library = library
        self.folder = Path(folder)
        self.sources = {}
        for path in sorted(self.folder.rglob(pattern)):
            self.load(path)

    def load(self, path):
        path = Path(path)
        if path not in self.sources:
            self.sources[path] = Source(path, self.folder)
            for included in self.sources[path].includes:
                self.load(included)
        return self.sources[path]

    def visible(self, source):
        """The source and everything of the same folder that it includes."""
        seen, waiting = [], [source]
        while waiting:
            current = waiting.pop()
            if current not in seen:
                seen.append(current)
                waiting += [self.sources[Path(path)] for path in current.includes]
        return seen


FOREIGN = "(foreign)"


class View:
    """What a test file sees: helpers, classes and the types of names."""

    def __init__(self, tests, source):
        self.library, self.source = tests.library, source
        self.sources = tests.visible(source)
        self.helpers, self.bases, self.types = defaultdict(list), {}, defaultdict(set)
        self.helper_types = set()
        for seen in self.sources:
            self.bases.update(seen.bases)
            for unit in seen.units:
                if not unit.is_test:
                    self.helpers[unit.name.lstrip("~")].append(unit)
        self.text = "\n".join(seen.text for seen in self.sources)
        self.words = set(re.findall(r"\w+", self.text))
        self.aliases()
        self.declarations()
        self.reached = {}
        self.is_named = False  # the class in question, or one that derives from it

    def names(self, name):
        return name in self.words

    def aliases(self):
        for name, meaning in re.findall(r"\busing\s+(\w+)\s*=\s*([^;]+);", self.text):
            words = [word for word in re.findall(r"\w+", meaning) if self.is_type(word)]
            if words:
                self.bases.setdefault(name, [words])

    def is_type(self, name):
        return name in self.library or name in self.bases

    def declarations(self):
        """Which class a name is of, as far as a declaration, a parameter or a result says so."""
        known = "|".join(sorted((n for n in [*self.library, *self.bases] if re.fullmatch(r"\w+", n))))
        declared = re.compile(
            rf"\b({known})\b(?:<([\w:]+)>)?[>\s&*]*(?:const\b)?[\s&*]+(\w+)\s*(?=[;,(){{}}=\[:])"
        )
        for kind, inner, name in declared.findall(self.text):
            self.types[name].update(
                [kind] + ([inner.split(":")[-1]] if self.is_type(inner.split(":")[-1]) else [])
            )
        made = re.compile(rf"\b(\w+)\s*[=(]\s*(?:std::make_(?:unique|shared)<|new\s+)({known})\b")
        for name, kind in made.findall(self.text):
            self.types[name].add(kind)
        foreign = re.compile(r"\b(?:std|sim)::\w+(?:<[^;=(){}]*>)?[\s&*]+(\w+)\s*(?=[;,(){}=\[])")
        for name in foreign.findall(self.text):
            self.types[name].add(FOREIGN)
        for exported in self.library.values():
            for operation in exported.operations.values():
                for word in re.findall(r"\w+", operation.returns):
                    if word in self.library:
                        self.types[operation.name].add(word)

    def ancestors(self, name):
        """The class and what it derives from, nearest first."""
        ordered, waiting = [], [name]
        while waiting:
            current = waiting.pop(0)
            if current in ordered:
                continue
            ordered.append(current)
            if current in self.library:
                waiting += self.library[current].bases
            for base in self.bases.get(current, []):
                waiting += [word for word in base if self.is_type(word)]
        return ordered

    def defines(self, name, operation):
        if name in self.library:
            return operation in self.library[name].operations
        return any(unit.owner == name for unit in self.helpers.get(operation, []))

    def means(self, kind, operation):
        """Whether the operation, called on an object known as `kind`, may be this one."""
        for name in self.ancestors(kind):
            if self.defines(name, operation.name):
                if name == operation.owner:
                    # Called through an interface, it is the object's own if it has one.
                    return kind != name or not operation.is_overridden
                if name in self.library and self.library[name].operations[operation.name].is_virtual:
                    break  # what it does is the object's own
                return False
        if operation.is_virtual and kind in self.library:
            return kind in self.ancestors(operation.owner) and self.names(operation.owner)
        return False

    def receiver(self, text, at):
        """The name before the dot or arrow that ends at `at`, through brackets; None without."""
        while at > 0 and text[at - 1] in ")]":
            opened = {")": "(", "]": "["}[text[at - 1]]
            closed, depth = text[at - 1], 0
            while at > 0:
                at -= 1
                depth += (text[at] == closed) - (text[at] == opened)
                if depth == 0:
                    break
        found = re.search(r"(\w+)$", text[:at])
        if not found:
            return None, False
        before = re.search(r"\bterminal(\(\))?\s*\.\s*$", text[: found.start()])
        return found[1], bool(before)

    def calls(self, unit, operation):
        if operation.name not in unit.words:
            return False
        is_free = operation.owner.endswith(".h")
        for found in re.finditer(rf"\b{operation.name}\b\s*(\()?", unit.body):
            before = unit.body[: found.start()].rstrip()
            if before.endswith("::"):
                scope = re.search(r"(\w+)(?:<\w+>)?::$", before)
                kind = scope and scope[1]
                if kind and self.is_type(kind) and self.means(kind, operation):
                    return True
            elif not found[1]:
                continue
            elif is_free:
                return True
            elif before.endswith((".", "->")):
                name, is_foreign = self.receiver(before, len(before) - (1 if before[-1] == "." else 2))
                if name == "this":
                    kinds = {unit.owner}
                else:
                    kinds = self.types.get(name, set()) if name else set()
                if is_foreign or kinds == {FOREIGN}:
                    continue
                kinds = kinds - {FOREIGN}
                if any(self.means(kind, operation) for kind in kinds) or (
                    not kinds and self.is_named and not operation.is_overridden
                ):
                    return True
            elif unit.owner and self.is_type(unit.owner) and self.means(unit.owner, operation):
                return True
        return False

    def reach(self, unit):
        """The units that a test goes through, itself first."""
        if unit in self.reached:
            return self.reached[unit]
        ordered, waiting = [unit], []

        def enter(words, owner):
            for word in words | set(self.ancestors(owner) if owner else []):
                waiting.extend(self.helpers.get(word, []))

        enter(unit.words, unit.owner)
        if unit.owner:
            for name in self.ancestors(unit.owner):
                for step in ("SetUp", "TearDown"):
                    waiting.extend(h for h in self.helpers.get(step, []) if h.owner == name)
        while waiting:
            helper = waiting.pop()
            if helper not in ordered:
                ordered.append(helper)
                enter(helper.words, helper.owner if helper.name.strip("~") == helper.owner else None)
        self.reached[unit] = ordered
        return ordered


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
