"""Small changes of C++ text, each of which somebody could make by mistake.

The text is cut into tokens, not parsed: a change that does not compile is found out by compiling it.
What clang-format guarantees is relied on: an operator with two operands has blanks around it, an
angle bracket of a template has not.
"""

import dataclasses
import re

TOKEN = re.compile(
    r"""(?P<skipped>\s+|//[^\n]*|/\*.*?\*/|\#(?:\\\n|[^\n])*)
    |(?P<string>(?:u8|[uUL])?(?:R"(?P<raw>[^(\s]*)\(.*?\)(?P=raw)"|"(?:\\.|[^"\\\n])*"))
    |(?P<char>(?:u8|[uUL])?'(?:\\.[^'\n]*|[^'\\\n])')
    |(?P<number>\.?\d(?:[eEpP][+-]|[\w.]|'\d)*)
    |(?P<word>\w+)
    |(?P<mark><<=|>>=|<=>|->\*?|\.\.\.|::|\+\+|--|<<|>>|&&|\|\||[-+*/%&|^=!<>]=|.)""",
    re.DOTALL | re.VERBOSE,
)
BINARY = {
    "==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
    "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["*"],
    "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "*=": ["/="], "/=": ["*="], "&=": ["|="], "|=": ["&="],
}  # fmt: skip
COMPARISONS = {"==", "!=", "<", "<=", ">", ">="}
WORDS = [("true", "false"), ("min", "max"), ("find", "rfind"), ("starts_with", "ends_with"),
         ("front", "back"), ("all_of", "any_of"), ("lower_bound", "upper_bound")]  # fmt: skip
SWAPPED_WORDS = dict(WORDS + [(b, a) for a, b in WORDS])
OF_TEXTS = {"string": ("<<", "+", "+="), "char": ("<<",)}
CLOSING = {"(": ")", "[": "]", "{": "}"}
BEFORE_A_BODY = {")", "]", "const", "noexcept", "override", "mutable", "else", "do", "try"}
DECLARATION = re.compile(
    r"(?:const\s|constexpr\s|static\s|unsigned\s)*[\w:]+(?:<[^;=()]*>)?(?:\s*[*&]+\s*(?:const\s)?|\s+)"
    r"(?P<name>\w+)\s*[=;({\[]"
)
NEVER_DELETED = {"using", "static_assert", "typedef", "friend", "case", "default"}


@dataclasses.dataclass(frozen=True)
class Mutant:
    """The text in [begin, end) of `path` becomes `replacement`."""

    path: str
    begin: int
    end: int
    replacement: str

    def apply(self, text):
        return text[: self.begin] + self.replacement + text[self.end :]

    def line_of(self, text):
        """The line of `text` in which the change begins."""
        return text[text.rfind("\n", 0, self.begin) + 1 :].partition("\n")[0]


@dataclasses.dataclass
class Token:
    kind: str
    text: str
    begin: int
    end: int
    partner: int = -1  # of a bracket: the index of the other one
    scope: str = ""  # what the innermost braces around it hold: "", "function", "block" or "other"


def tokens_of(text):
    found = [Token(match.lastgroup if match.lastgroup != "raw" else "string", match[0], *match.span())
             for match in TOKEN.finditer(text)]  # fmt: skip
    tokens = [token for token in found if token.kind != "skipped"]
    brackets = []
    for i, token in enumerate(tokens):
        if token.kind == "mark" and brackets and token.text == CLOSING[tokens[brackets[-1][0]].text]:
            token.partner = brackets.pop()[0]
            tokens[token.partner].partner = i
        token.scope = brackets[-1][1] if brackets else ""
        if token.kind == "mark" and token.text in CLOSING:
            brackets.append((i, scope_behind(tokens, i)))
    return tokens


def scope_behind(tokens, i):
    """What the bracket at `i` opens."""
    if tokens[i].text != "{" or i == 0:
        return "other"
    if tokens[i].scope in ("function", "block") and tokens[i - 1].text in ("{", "}", ";", ":"):
        return "block"
    before = i - 1
    while before > 0 and (tokens[before].kind == "word" or tokens[before].text in "::*&<>"):
        before -= 1
    if tokens[before].text == "->":  # of a lambda's result
        return "function"
    before = tokens[i - 1]
    if before.text not in BEFORE_A_BODY:
        return "other"
    head = tokens[before.partner - 1].text if before.text == ")" else before.text
    return "block" if head in ("if", "for", "while", "switch", "catch", "else", "do", "try") else "function"


def operator_changes(text, tokens):
    for before, token, behind in zip(tokens, tokens[1:], tokens[2:]):
        is_binary = text[token.begin - 1].isspace() and text[token.end].isspace()
        if token.kind == "number":
            yield from ((token.begin, token.end, f"({token.text} {change})")
                        for change in ("+ 1", "- 1")[: 1 if token.text == "0" else 2])  # fmt: skip
        elif token.kind == "char":
            yield token.begin, token.end, "'y'" if token.text == "'x'" else "'x'"
        elif token.kind == "word" and token.text in SWAPPED_WORDS:
            yield token.begin, token.end, SWAPPED_WORDS[token.text]
        elif token.kind != "mark":
            continue
        elif token.text in OF_TEXTS.get(before.kind, ()) or token.text in OF_TEXTS.get(behind.kind, ()):
            continue  # streams and strings have no other one
        elif is_binary and token.text in BINARY:
            yield from ((token.begin, token.end, other) for other in BINARY[token.text])
        elif token.text in ("++", "--"):
            yield token.begin, token.end, "--" if token.text == "++" else "++"
        elif token.text in "!~" or (token.text == "-" and not text[token.end].isspace()):
            yield token.begin, token.end, ""


def negated_conditions(text, tokens):
    for word, bracket in zip(tokens, tokens[1:]):
        if word.text not in ("if", "while", "for") or bracket.text != "(":
            continue
        begin, end = bracket.end, tokens[bracket.partner].begin
        stops = [token.begin for token in tokens
                 if begin <= token.begin < end and token.text == ";" and token.kind == "mark"]  # fmt: skip
        if word.text == "for":
            if len(stops) != 2:
                continue
            begin, end = stops[0] + 1, stops[1]
        elif stops:
            begin = stops[-1] + 1
        begin += text[begin] == " "
        inside = [token.text for token in tokens if begin <= token.begin < end]
        # What changes a single operator is among the changes of operators.
        if inside and ({"&&", "||"} & {*inside} or not ({"!"} | COMPARISONS) & {*inside}):
            yield begin, end, f"!({text[begin:end]})"


def statement_begin(tokens, end):
    """The index of the first token of the statement that ends at `end`, without what controls it."""
    begin = end
    while begin > 0:
        before = tokens[begin - 1]
        if before.text in ("{", ";") and before.kind == "mark":
            break
        ends_a_body = before.text == "}" and tokens[before.partner + 1].scope in ("function", "block")
        if ends_a_body and tokens[begin].text not in (";", ",", ")", "(", "."):
            break
        begin = before.partner if before.text in ("}", ")", "]") and before.partner >= 0 else begin - 1
    while begin < end:
        if tokens[begin].text in ("if", "for", "while", "switch"):
            begin = tokens[begin + 1].partner + 1
        elif tokens[begin].text in ("else", "do"):
            begin += 1
        elif tokens[begin].text in ("case", "default"):
            begin = next(i for i in range(begin, end + 1) if tokens[i].text in (":", ";")) + 1
        else:
            break
    return begin


def deleted_statements(text, tokens):
    for i, token in enumerate(tokens):
        if token.text != ";" or token.kind != "mark" or token.scope not in ("function", "block"):
            continue
        begin = statement_begin(tokens, i)
        if begin >= i or tokens[begin].text in NEVER_DELETED:
            continue
        statement = text[tokens[begin].begin : token.end]
        if tokens[begin].text == "return":
            if i > begin + 2 and tokens[i - 1].text not in ("nullopt", "}"):  # no empty value yet
                yield tokens[begin + 1].begin, token.begin, "{}"
            if token.scope == "function" and i > begin + 1:
                continue  # what owes a value and returns none may do anything
        else:
            declared = DECLARATION.match(statement)
            if statement.startswith(("const auto [", "auto [")) or (
                declared and re.search(rf"\b{declared['name']}\b", text[token.end :])
            ):
                continue
        yield tokens[begin].begin, token.begin, ""


def mutants_of(path, text):
    """All mutants of a C++ file, by their places."""
    tokens = tokens_of(text)
    changes = {*operator_changes(text, tokens), *negated_conditions(text, tokens),
               *deleted_statements(text, tokens)}  # fmt: skip
    return [Mutant(path, *change) for change in sorted(changes)]
