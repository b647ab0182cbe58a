"""Mutants of a C++ source: one operator, constant, condition or statement changed at a time.

The source is read as tokens, not parsed. That is enough because clang-format lays it out: a binary operator stands between
blanks, the bracket of a template and the star of a pointer do not. A change that turns out not to compile is no mutant.
"""

import re
from collections import Counter, namedtuple

Token = namedtuple("Token", "kind text start end")

# `line` and `text` are the place where it begins, `label` says what is changed. Of several equal lines the second one's text
# ends in [2], and so on.
Mutant = namedtuple("Mutant", "start end replacement line text label")

TOKEN = re.compile(
    r"""(?P<skip>//[^\n]*|/\*.*?\*/|\s+|^[ \t]*\#(?:\\\n|[^\n])*)
    |(?P<string>"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])+')
    |(?P<number>(?:0[xX][0-9a-fA-F]+(?:\.[0-9a-fA-F]*)?(?:[pP][+-]?[0-9]+)?|[0-9]+(?:\.[0-9]*)?(?:[eE][+-]?[0-9]+)?)[uUlLfF]*)
    |(?P<name>[A-Za-z_]\w*)
    |(?P<operator><<=|>>=|\+\+|--|->|::|&&|\|\||[-+*/%&|^<>=!]=|<<|>>|[-+*/%&|^<>=!~?:;,.(){}\[\]])""",
    re.X | re.S | re.M,
)

SWAPPED = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "&": "|", "|": "&", "<<": ">>", ">>": "<<",
    "&&": "||", "||": "&&", "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "|=": "&=", "&=": "|=",
}
SWAPPED_NAMES = {"min": "max", "max": "min", "true": "false", "false": "true", "all_of": "any_of", "any_of": "all_of"}
OPENING = {"(": ")", "[": "]", "{": "}"}
COMPARING = {"<", "<=", ">", ">=", "==", "!=", "&&", "||"}


def tokens_of(source):
    place, found = 0, []
    while place < len(source):
        match = TOKEN.match(source, place)
        if not match:
            raise ValueError(f"not a token: {source[place:place + 20]!r}")
        if match.lastgroup != "skip":
            found.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
        place = match.end()
    return found


class Reader:
    """Collects the mutants of one source."""

    def __init__(self, source):
        self.source = source
        self.tokens = tokens_of(source)
        self.mutants = []
        self.labels = Counter()
        self.partners = self._partners()
        self.left_out = self._left_out()
        self.texts = self._texts()

    def read(self):
        self._tokens()
        self._conditions()
        self._statements()
        self.mutants.sort(key=lambda mutant: (mutant.start, mutant.end, mutant.label))
        return self.mutants

    def _text(self, i):
        return self.tokens[i].text if 0 <= i < len(self.tokens) else ""

    def _partners(self):
        """For each opening and closing bracket the place of the other one."""
        partners, opened = {}, []
        for i, token in enumerate(self.tokens):
            if token.text in OPENING:
                opened.append(i)
            elif opened and token.text == OPENING[self._text(opened[-1])]:
                partners[i] = opened.pop()
                partners[partners[i]] = i
        return partners

    def _left_out(self):
        """Tokens that say nothing about what is done: static assertions, literal texts, names of operators."""
        left_out = {i for i, token in enumerate(self.tokens) if token.kind == "string"}
        for i, token in enumerate(self.tokens):
            if token.text == "static_assert":
                left_out.update(range(i, self.partners[i + 1] + 1))
            elif token.text == "operator":
                left_out.add(i + 1)
        return left_out

    def _texts(self):
        texts, seen = [], Counter()
        for line in map(str.strip, self.source.split("\n")):
            seen[line] += 1
            texts.append(line if seen[line] == 1 else f"{line} [{seen[line]}]")
        return texts

    def _add(self, first, last, replacement, label):
        """A mutant that replaces the tokens from `first` to `last`."""
        start, end = self.tokens[first].start, self.tokens[last].end
        line = self.source.count("\n", 0, start) + 1
        self.labels[line, label] += 1
        if self.labels[line, label] > 1:
            label += f" #{self.labels[line, label]}"
        self.mutants.append(Mutant(start, end, replacement, line, self.texts[line - 1], label))

    def _swap(self, i, replacement):
        self._add(i, i, replacement, f"{self._text(i)} -> {replacement}" if replacement else f"{self._text(i)} dropped")

    def _is_binary(self, i):
        token = self.tokens[i]
        return self.source[token.start - 1].isspace() and self.source[token.end : token.end + 1].isspace()

    def _tokens(self):
        for i, token in enumerate(self.tokens):
            if i in self.left_out:
                continue
            if token.kind == "number":
                self._number(i)
            elif token.kind == "operator":
                self._operator(i)
            elif token.text in ("true", "false") or (token.text in SWAPPED_NAMES and self._text(i + 1) == "("):
                self._swap(i, SWAPPED_NAMES[token.text])

    def _operator(self, i):
        text = self._text(i)
        if text in SWAPPED and self._is_binary(i):
            if text != "||" or not self._archives(i):
                self._swap(i, SWAPPED[text])
        elif text in ("++", "--"):
            self._swap(i, "--" if text == "++" else "++")
        elif text == "!":
            self._swap(i, "")
        elif text == "-" and self.source[self.tokens[i].end] != " ":
            self._swap(i, "")
        elif text == "?":
            self._add(i, i, "|| true ?", "condition before ? true")
            self._add(i, i, "&& false ?", "condition before ? false")

    def _archives(self, i):
        """Whether the operator is the one that stores and loads."""
        while self._text(i) not in (";", "{", "}"):
            if self._text(i) == "archive" and self._text(i + 1) == "||":
                return True
            i -= 1
        return False

    def _number(self, i):
        text = self._text(i)
        if re.match(r"\d+[uUlL]*$", text):
            value, suffix = int(re.match(r"\d+", text).group()), text.lstrip("0123456789")
            for changed in (value + 1, value - 1):
                if changed >= 0:
                    self._swap(i, f"{changed}{suffix}")
        elif re.match(r"0[xX][0-9a-fA-F]+[uUlL]*$", text):
            self._swap(i, f"({text} + 1)")
            self._swap(i, f"({text} - 1)")
        elif not text.startswith("0x") and float(text.rstrip("fF")) == 0.0:
            self._swap(i, text.replace("0", "1", 1))
        else:
            self._swap(i, f"({text} * 2)")
            self._swap(i, f"({text} / 2)")

    def _conditions(self):
        for i, token in enumerate(self.tokens):
            if token.kind != "name" or token.text not in ("if", "while", "for") or self._text(i + 1) != "(":
                continue
            first, last = i + 2, self.partners[i + 1] - 1
            if token.text == "for":
                ends = [j for j in range(first, last + 1) if self._text(j) == ";"]
                if len(ends) != 2:
                    continue
                first, last = ends[0] + 1, ends[1] - 1
            if first > last:
                continue
            # A loop whose condition always holds would only run into the time limit.
            for value in ("true", "false") if token.text == "if" else ("false",):
                self._add(first, last, value, f"{token.text} condition {value}")

    def _statements(self):
        """Statements that end in a semicolon and stand in a function's body."""
        scopes, first, depth = [], 0, 0
        i = 0
        while i < len(self.tokens):
            text = self._text(i)
            if text == "{":
                if not self._opens_block(first, i):
                    i = self.partners[i] + 1
                    continue
                scopes.append((self._is_body(first, i), first, depth))
                first, depth = i + 1, 0
            elif text == "}":
                _, outer, depth = scopes.pop()
                first = outer if depth else i + 1
            elif text in "([":
                depth += 1
            elif text in ")]":
                depth -= 1
            elif text == ";" and depth == 0:
                if first < i and scopes and scopes[-1][0]:
                    self._statement(first, i)
                first = i + 1
            i += 1

    def _opens_block(self, first, i):
        """Whether a brace opens a block, not a list of values."""
        if i == first or self._text(i - 1) in (")", "const", "noexcept", "override", "else", "do", "try", "]"):
            return True
        return not self._is_body(first, i)

    def _is_body(self, first, i):
        """Whether a block holds statements, not declarations."""
        while self._text(first) == "template":
            depth, first = 0, first + 1
            while first < i:
                depth += {"<": 1, ">": -1}.get(self._text(first), 0)
                first += 1
                if depth == 0:
                    break
        return self._text(first) not in ("namespace", "class", "struct", "enum", "union", "extern")

    def _statement(self, first, last):
        text = self._text(first)
        if text == "return":
            if last > first + 1 and self.tokens[first + 1].kind != "number" and self._text(first + 1) != "*":
                self._returned(first, last)
            elif last == first + 1:
                self._add(first, last, ";", "statement removed")
        elif text in ("throw", "break", "continue", "delete") or not self._declares(first, last):
            self._add(first, last, ";", "statement removed")

    def _returned(self, first, last):
        whole = self.source[self.tokens[first + 1].start : self.tokens[last].start]
        if whole in ("true", "false") or self._archives(last - 1):
            return
        if any(self._text(i) in COMPARING and self._is_binary(i) for i in range(first + 1, last)):
            self._add(first, last, f"return !({whole});", "return value negated")
        else:
            self._add(first, last, "return {};", "return value empty")

    def _declares(self, first, last):
        """Two names in a row, with nothing but qualifiers, template arguments, stars and references between them."""
        text = self.source[self.tokens[first].start : self.tokens[last].start]
        return re.match(r"(?:const|static|constexpr|using|typename|auto)\b|[\w:]+(?:<[^;()]*>)?[&*]*\s+[&*]*\w", text)


def mutants_of(source):
    return Reader(source).read()
