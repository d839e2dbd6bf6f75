"""Finds the small changes that can be made to C++ code: each would be a defect that a test should notice.

Works on the tokens of code as clang-format lays it out: an operator between two operands has a space on both sides, one
that belongs to a type or a template has not. A change that is none in C++ does not compile, and is left out for that.
"""

import dataclasses
import hashlib
import re

TOKEN = re.compile(r"""
    (?P<space>\s+)
  | (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:[^\n\\]|\\.|\\\n)*)
  | (?P<text>(?:u8|[uUL])?R"(?P<fence>[^()\s]*)\(.*?\)(?P=fence)"|(?:u8|[uUL])?"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)+')
  | (?P<number>\.?\d(?:[eEpP][+-]|'?[\w.])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<sign><=>|<<=|>>=|->\*|\.\.\.|<<|>>|<=|>=|==|!=|&&|\|\||\+\+|--|->|::|[-+*/%&|^]=|.)
""", re.VERBOSE | re.MULTILINE | re.DOTALL)

BETWEEN = {
    "==": ["!="], "!=": ["=="],
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "^": ["|"], "<<": [">>"], ">>": ["<<"],
    "&&": ["||"], "||": ["&&"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "%=": ["*="],
    "&=": ["|="], "|=": ["&="], "^=": ["|="], "<<=": [">>="], ">>=": ["<<="],
}
# What these hold or introduce says what must be so, or concerns the compiler only.
DECLARING = {"static_assert", "assert", "alignas", "decltype", "noexcept", "requires"}
# Returning one of these instead of "{}", or the other way round, is the same or another change that is made anyway.
NOTHING = {"{}", "true", "false", "nullptr", "0"}
# A statement that begins so is no expression.
NO_EXPRESSION = {"return", "using", "namespace", "class", "struct", "enum", "union", "template", "typename", "typedef",
                 "const", "constexpr", "static", "auto", "extern", "friend", "public", "private", "protected", "case",
                 "default", "if", "else", "for", "while", "do", "switch", "try", "catch", "goto", "inline", "virtual",
                 "explicit", "mutable", "volatile", "thread_local", "static_assert", "assert", "void", "bool", "char",
                 "short", "int", "long", "float", "double", "signed", "unsigned", "operator", "concept", "requires"}


@dataclasses.dataclass(frozen=True)
class Token:
    kind: str
    text: str
    start: int

    @property
    def end(self):
        return self.start + len(self.text)


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str
    start: int
    end: int
    replacement: str
    line: int     # from 1
    before: str   # the line as it stands, without indentation
    after: str    # the same line with the change
    ordinal: int  # counts the same change of a line that the file holds several times, from 0

    def order(self, seed):
        """Where the change stands in the order of `seed`: whatever else changes in the file or the tree."""
        text = "\0".join([str(seed), self.path, self.before, self.after, str(self.ordinal)])
        return hashlib.sha256(text.encode()).hexdigest()

    def apply(self, text):
        return text[:self.start] + self.replacement + text[self.end:]


def tokens_of(text):
    """The tokens without spaces, comments and preprocessor lines, and without what DECLARING introduces."""
    tokens = [Token(match.lastgroup if match.lastgroup != "fence" else "text", match[0], match.start())
              for match in TOKEN.finditer(text) if match.lastgroup not in ("space", "comment", "directive")]
    kept = []
    index = 0
    while index < len(tokens):
        token = tokens[index]
        if token.text in DECLARING and index + 1 < len(tokens) and tokens[index + 1].text == "(":
            end = closing(tokens, index + 1)
            kept.append(Token("declaring", text[token.start:tokens[end].end], token.start))
            index = end + 1
        elif token.text == "[" and index + 1 < len(tokens) and tokens[index + 1].text == "[":
            index = closing(tokens, index) + 1
        else:
            kept.append(token)
            index += 1
    return kept


def closing(tokens, index):
    """The index of the bracket that closes the one at `index`."""
    depth = 0
    for at in range(index, len(tokens)):
        if tokens[at].kind == "sign" and tokens[at].text in "([{":
            depth += 1
        elif tokens[at].kind == "sign" and tokens[at].text in ")]}":
            depth -= 1
            if depth == 0:
                return at
    return len(tokens) - 1


def operators(text, tokens):
    for index, token in enumerate(tokens):
        if token.kind != "sign" or index == 0 or tokens[index - 1].text == "operator":
            continue
        spaced = text[token.start - 1:token.start].isspace() and text[token.end:token.end + 1].isspace()
        if token.text in BETWEEN and spaced:
            for replacement in BETWEEN[token.text]:
                yield token.start, token.end, replacement
        elif token.text in ("++", "--"):
            yield token.start, token.end, "--" if token.text == "++" else "++"
        elif token.text == "!":
            yield token.start, token.end, ""
        elif token.text == "-" and not text[token.end:token.end + 1].isspace():
            yield token.start, token.end, ""


def constants(tokens):
    for index, token in enumerate(tokens):
        if token.text in ("true", "false"):
            yield token.start, token.end, "false" if token.text == "true" else "true"
        if token.kind != "number" or (tokens[index - 1].text == "=" and tokens[index - 2].text in (")", "const")):
            continue
        match = re.fullmatch(r"((?:0[xX][0-9a-fA-F']+|0[bB][01']+|\d[\d']*))([uUlLzZ]*)", token.text)
        if match is None:
            yield token.start, token.end, f"({token.text} + 1)"
            continue
        value = int(match[1].replace("'", ""), 0 if match[1][:1] == "0" and len(match[1]) > 1 else 10)
        for other in (value + 1, value - 1) if value > 0 else (1,):
            number = f"{other:#x}" if match[1][:2] in ("0x", "0X") else str(other)
            yield token.start, token.end, number + match[2]


def conditions(text, tokens):
    for index, token in enumerate(tokens[:-2]):
        if token.text not in ("if", "while"):
            continue
        opening = index + 1 + (tokens[index + 1].text == "constexpr")
        if tokens[opening].text != "(":
            continue
        end = tokens[closing(tokens, opening)].start
        start = tokens[opening].end
        depth = 0
        for inner in tokens[opening + 1:closing(tokens, opening)]:
            depth += (inner.text in ("(", "{", "[")) - (inner.text in (")", "}", "]"))
            if inner.text == ";" and depth == 0:
                start = inner.end + 1
        condition = text[start:end]
        declared = re.match(r"(?:const )?[\w:<>]+[ *&]+(\w+) = ", condition)
        if declared is not None:
            yield end, end, f"; !{declared[1]}"
        elif re.search(r" (&&|\|\|) ", condition) or not re.match(r"!|.* ([=!<>]=|[<>]) ", condition, re.DOTALL):
            yield start, end, f"!({condition})"  # else its operator is changed to the opposite one anyway


def statements(text, tokens):
    brackets = [""]  # the open ones
    for index, token in list(enumerate(tokens))[1:-1]:
        previous = tokens[index - 1].text
        if tokens[index - 1].kind == "sign" and previous in "([{":
            brackets.append(previous)
        elif tokens[index - 1].kind == "sign" and previous in ")]}":
            brackets.pop()
        if brackets[-1] != "{":
            continue  # in the head of a loop
        is_labelled = previous == ":" and re.search(r"(case [^\n]*|default):\s*\Z", text[max(0, token.start - 200):token.start])
        follows_head = previous == ")" and token.kind == "word"  # of an if or a loop
        if previous not in (";", "{", "}", "else") and not is_labelled and not follows_head:
            continue
        if token.text == "return" and tokens[index + 1].text != ";":
            end = statement_end(tokens, index)
            if end is not None and text[tokens[index + 1].start:tokens[end].start] not in NOTHING:
                yield tokens[index + 1].start, tokens[end].start, "{}"
            continue
        end = statement_end(tokens, index)
        if end is None or not is_expression(tokens, index, end):
            continue
        removed = text[token.start:tokens[end].start]
        if re.fullmatch(r"[\w.>-]*\breserve\(.*\)", removed, re.DOTALL):
            continue  # by what it promises, nothing but time depends on it
        yield token.start, tokens[end].start, "\n" * removed.count("\n")


def statement_end(tokens, index):
    depth = 0
    for at in range(index, len(tokens)):
        if tokens[at].kind != "sign":
            continue
        if tokens[at].text in "([{":
            depth += 1
        elif tokens[at].text in ")]}":
            depth -= 1
            if depth < 0:
                return None
        elif tokens[at].text == ";" and depth == 0:
            return at
    return None


def is_expression(tokens, index, end):
    """Whether the tokens are an expression, or a jump, and no declaration."""
    first = tokens[index]
    if first.text in ("break", "continue", "throw", "return", "delete", "co_return"):
        return True
    if first.kind == "sign":
        return first.text in ("++", "--", "*", "(") and end > index + 1
    if first.kind != "word" or first.text in NO_EXPRESSION or end == index + 1:
        return False
    at = index + 1
    while at < end and tokens[at].text == "::":
        at += 2
    if tokens[at].text == "<":
        return False
    return tokens[at].kind == "sign" and tokens[at].text not in ("*", "&", "&&", "{", ",", ":", "...")


def mutants_of(path, text):
    tokens = tokens_of(text)
    changes = sorted({*operators(text, tokens), *constants(tokens), *conditions(text, tokens),
                      *statements(text, tokens)})
    seen = {}
    for start, end, replacement in changes:
        line_start = text.rfind("\n", 0, start) + 1
        line_end = text.find("\n", start)
        changed = text[line_start:start] + replacement + text[end:text.find("\n", end)]
        before = text[line_start:line_end].strip()
        after = changed.split("\n")[0].strip()
        ordinal = seen.get((before, after), 0)
        seen[before, after] = ordinal + 1
        yield Mutant(path, start, end, replacement, text.count("\n", 0, start) + 1, before, after, ordinal)
