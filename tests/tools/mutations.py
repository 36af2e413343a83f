"""Single-token mutations of C++ source: what could be a programmer's slip, and compiles as a rule.

The source is cut into tokens, no more. It relies on the format: binary operators stand between
blanks, which the brackets of templates and the ampersands of references don't.
"""

import re
from typing import NamedTuple

TOKEN = re.compile(
    r"""
    (?P<skip>//[^\n]*|/\*.*?\*/|^[ \t]*\#(?:[^\n\\]|\\.)*
      |(?:TAL_WIDE\()?"(?:[^"\\\n]|\\.)*"|(?<!\w)'(?:[^'\\\n]|\\.)+')
    |(?P<word>[A-Za-z_]\w*)
    |(?P<number>\d(?:[\w.']*))
    |(?P<mark><<=|>>=|->\*?|::|\+\+|--|<=>|[-+*/%&|^=!<>]=|&&|\|\||<<|>>|[^\s\w])
    """, re.VERBOSE | re.MULTILINE | re.DOTALL)

BINARY = {
    "==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">",
    "+": "-", "-": "+", "*": "+", "/": "*", "%": "/", "<<": ">>", ">>": "<<",
    "&": "|", "|": "&", "^": "|", "&&": "||", "||": "&&",
    "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=", "^=": "|=",
}
WORDS = {"true": "false", "false": "true"}
STEPS = {"++": "--", "--": "++"}
# What a statement that is worth dropping does not begin with.
NO_STATEMENT = {
    "return", "using", "namespace", "class", "struct", "enum", "public", "private", "protected",
    "template", "friend", "typedef", "case", "default", "else", "do", "for", "if", "while",
    "switch", "try", "catch", "static_assert", "throw", "const", "static", "extern", "constexpr",
    "auto", "virtual", "explicit", "inline", "goto", "delete", "static_cast", "operator"}


class Token(NamedTuple):
    kind: str
    text: str
    start: int
    end: int


class Mutation(NamedTuple):
    """The text from `start` to `end` gives way to `text`."""
    start: int
    end: int
    text: str
    kind: str

    def apply(self, source):
        return source[:self.start] + self.text + source[self.end:]

    def line(self, source):
        return source.count("\n", 0, self.start) + 1

    def describe(self, source):
        """The changed lines before and after, without blanks around them."""
        first = source.rfind("\n", 0, self.start) + 1
        last = source.find("\n", self.end)
        last = len(source) if last < 0 else last
        after = source[first:self.start] + self.text + source[self.end:last]
        return " ".join(source[first:last].split()), " ".join(after.split())


def tokens_of(source):
    found = []
    for match in TOKEN.finditer(source):
        if match.lastgroup != "skip":
            found.append(Token(match.lastgroup, match.group(), match.start(), match.end()))
    return found


def is_binary(source, token):
    return source[token.start - 1].isspace() and source[token.end].isspace()


def is_pure(tokens, index):
    """Whether the number at `index` makes a function pure: ") const = 0;"."""
    return (tokens[index].text == "0" and index > 1 and tokens[index - 1].text == "="
            and tokens[index - 2].text in (")", "const", "noexcept", "override"))


def other_number(text):
    digits = re.match(r"0[xX][0-9A-Fa-f']+|\d[\d']*", text).group()
    value = int(digits.replace("'", ""), 0 if digits[:2].lower() == "0x" else 10)
    return str(value + 1) + text[len(digits):]


def matching(tokens, index):
    """Returns the index of the mark that closes the one at `index`."""
    depth = 0
    for other in range(index, len(tokens)):
        depth += {"(": 1, "[": 1, "{": 1, ")": -1, "]": -1, "}": -1}.get(tokens[other].text, 0)
        if depth == 0:
            return other
    return None


def template_heads(tokens):
    """Returns the indices of tokens between "template <" and its end."""
    inside = set()
    for index, token in enumerate(tokens):
        if token.text != "template":
            continue
        depth = 0
        for other in range(index + 1, len(tokens)):
            depth += {"<": 1, ">": -1, ">>": -2}.get(tokens[other].text, 0)
            inside.add(other)
            if depth <= 0:
                break
    return inside


def negated(source, tokens, index):
    """The condition of the `if` at `index`, negated; None for one that declares something."""
    if tokens[index + 1].text != "(":
        return None
    close = matching(tokens, index + 1)
    inner = tokens[index + 2:close]
    if any(token.text in ("=", ";") for token in inner):
        return None
    start, end = tokens[index + 1].end, tokens[close].start
    return Mutation(start, end, f"!({source[start:end]})", "negate")


def dropped(tokens, index):
    """The statement that begins at `index`, dropped; None if it is none or declares something."""
    first = tokens[index]
    if first.kind != "word" and first.text not in ("*", "++", "--"):
        return None
    if first.text in NO_STATEMENT or index + 1 >= len(tokens):
        return None
    if tokens[index + 1].text not in ("(", ".", "->", "=", "+=", "-=", "[", "::", "++", "--",
                                      "|=", "&=", "^=") and first.text != "*":
        return None
    depth = 0
    calls = False
    for other in range(index, len(tokens)):
        text = tokens[other].text
        depth += {"(": 1, "[": 1, "{": 1, ")": -1, "]": -1, "}": -1}.get(text, 0)
        calls = calls or text in ("(", "=", "++", "--", "+=", "-=", "|=", "&=", "^=")
        if depth < 0 or (text == "{" and depth == 1):
            return None
        before = tokens[other - 1]
        if (depth == 0 and other > index and tokens[other].kind == "word"
                and (before.text in (">", ">>", "&", "*") or before.kind == "word")):
            return None  # a declaration
        if text == ";" and depth == 0:
            return Mutation(first.start, tokens[other].start, "", "drop") if calls else None
    return None


def mutations_of(source):
    """Returns all mutations of a source, in the order of their places."""
    tokens = tokens_of(source)
    heads = template_heads(tokens)
    body = 0  # how deep in braces that open after ")" and the like, where statements stand
    braces = []
    found = []
    for index, token in enumerate(tokens):
        before = tokens[index - 1] if index else None
        if token.text == "{":
            opens = before is not None and before.text in (")", "const", "noexcept", "override",
                                                           "else", "do", "try", ";", "{", "}", ":")
            braces.append(opens or (body > 0 and before.kind != "word"))
            body += braces[-1]
        elif token.text == "}" and braces:
            body -= braces.pop()
        if index in heads or before is None or before.text == "operator":
            continue
        if token.kind == "mark":
            if token.text in BINARY and is_binary(source, token):
                found.append(Mutation(token.start, token.end, BINARY[token.text], "operator"))
            elif token.text in STEPS:
                found.append(Mutation(token.start, token.end, STEPS[token.text], "operator"))
        elif token.kind == "number" and not is_pure(tokens, index) and "." not in token.text:
            found.append(Mutation(token.start, token.end, other_number(token.text), "constant"))
        elif token.text in WORDS:
            found.append(Mutation(token.start, token.end, WORDS[token.text], "constant"))
        elif token.text in ("break", "continue"):
            found.append(Mutation(token.start, token.end, "", "drop"))
        elif token.text == "if" and tokens[index + 1].text == "(":
            found.append(negated(source, tokens, index))
        if body > 0 and before.text in (";", "{", "}", ")", "else"):
            found.append(dropped(tokens, index))
    return sorted({m for m in found if m is not None})
