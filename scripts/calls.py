"""Which operations the tests call, read from their sources as text. For scripts/operations.py."""

import re
from collections import defaultdict
from pathlib import Path

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
    """A file without its comments and literals, cut into units."""

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
    """The sources of a folder, with what they include of it."""

    def __init__(self, library, folder):
        self.library = library
        self.folder = Path(folder)
        self.sources = {}
        for path in sorted(self.folder.rglob("*.cpp")):
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
