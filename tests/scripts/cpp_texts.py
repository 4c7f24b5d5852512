"""Reads the string literals of C++ sources, as far as the checks of this folder need it."""

import re

_TOKEN = re.compile(
    r"""
    (?P<comment>//[^\n]*|/\*.*?\*/)
  | (?P<directive>^[ \t]*\#(?:\\\n|[^\n])*)
  | R"(?P<mark>[^()\s\\]{0,16})\((?P<raw>.*?)\)(?P=mark)"
  | "(?P<string>(?:\\.|[^"\\\n])*)"
  | '(?:\\.|[^'\\\n])+'
  | (?P<newline>\n)
  | (?P<other>[^\s"'/\#]+|.)
    """,
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
_ESCAPE = re.compile(r"\\(x[0-9a-fA-F]+|[0-7]{1,3}|.)", re.DOTALL)
_SIMPLE_ESCAPES = {"n": "\n", "r": "\r", "t": "\t", "v": "\v", "f": "\f", "a": "\a", "b": "\b"}
_TEST = re.compile(r"\bTEST(?:_[FP])?\(\s*(\w+)\s*,\s*(\w+)\s*\)")


class Statement:
    """The literals of one statement, adjacent ones joined, and its code without them."""

    def __init__(self, test):
        self.test = test  # "Suite.Name", or None outside of a test
        self.code = ""
        self.literals = []  # (text, line of its beginning)


def _unescape(body):
    def one(match):
        code = match.group(1)
        if code[0] == "x":
            return chr(int(code[1:], 16))
        if code[0] in "01234567":
            return chr(int(code, 8))
        return _SIMPLE_ESCAPES.get(code, code)

    return _ESCAPE.sub(one, body)


def statements(source):
    """Cuts a source at `;`, `{` and `}` into the statements that hold a literal."""
    result = []
    line = 1
    test = None
    statement = Statement(test)
    previous_was_literal = False
    for token in _TOKEN.finditer(source):
        kind = token.lastgroup
        if kind == "mark":
            kind = "raw"
        if token.group("raw") is not None or token.group("string") is not None:
            raw = token.group("raw")
            text = raw if raw is not None else _unescape(token.group("string"))
            if previous_was_literal:
                before, begin = statement.literals.pop()
                statement.literals.append((before + text, begin))
            else:
                statement.literals.append((text, line))
            previous_was_literal = True
        elif kind == "other" and not token.group().isspace():
            previous_was_literal = False
            statement.code += " " + token.group()
            name = _TEST.search(statement.code.replace(" ", ""))
            if name:
                test = statement.test = ".".join(name.groups())
            if re.search(r"[;{}]", token.group()):
                if statement.literals:
                    result.append(statement)
                statement = Statement(test)
        line += token.group().count("\n")
    if statement.literals:
        result.append(statement)
    return result
