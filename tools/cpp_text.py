"""Parses C++ as far as the house rules need: code without comments and texts, and the lines of each function."""
import re

_TOKEN = re.compile(
    r'R"(?P<tag>[^()\s\\]{0,16})\((?:.|\n)*?\)(?P=tag)"'  # raw text
    r'|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'"  # but not the separator in 1'000
    r"|//[^\n]*"
    r"|/\*(?:.|\n)*?\*/")


def blank(text, keep_strings=False):
    """The text with comments (and string contents) replaced by spaces; line numbers are unchanged."""

    def replace(match):
        token = match[0]
        if token.startswith("/"):
            return re.sub(r"[^\n]", " ", token)
        if keep_strings:
            return token
        return token[0] + re.sub(r"[^\n]", " ", token[1:-1]) + token[-1]

    return _TOKEN.sub(replace, text)


_NOT_A_FUNCTION = re.compile(r"^\s*(?:\[\[[^\]]*\]\]\s*)?(?:inline\s+)?(?:typedef\s+)?"
                             r"(?:namespace|class|struct|union|enum|extern|requires)\b")
_NAME = re.compile(r"([~\w:]+|operator\s*\S+?)\s*\(")


def _looks_like_function(head):
    head = re.sub(r"^\s*template\s*<[^{;]*?>\s*(?=\w)", "", head)
    head = re.sub(r"^\s*(?:(?:public|private|protected)\s*:|Q_OBJECT)\s*", "", head)
    if _NOT_A_FUNCTION.match(head) or "(" not in head:
        return False
    before = head.split("(", 1)[0]
    return "=" not in before or "operator" in before


def functions(text):
    """(name, first line, last line) of every function; a function inside another belongs to the outer one."""
    code = re.sub(r"^[ \t]*#(?:[^\n\\]|\\.|\\\n)*", lambda m: re.sub(r"[^\n]", " ", m[0]), blank(text), flags=re.MULTILINE)
    found, start, depth, parens, begin, name = [], 0, 0, 0, None, ""
    position = 0
    for position, char in enumerate(code):
        if begin is None and char == "(":
            parens += 1
        elif begin is None and char == ")":
            parens = max(0, parens - 1)
        elif char == "{":
            head = code[start:position]
            if begin is not None:
                depth += 1
            elif parens:
                continue
            elif _looks_like_function(head):
                begin, depth = start + len(head) - len(head.lstrip()), 1
                name = (_NAME.search(head) or [None, "?"])[1]
            else:
                start = position + 1
        elif char == "}":
            if begin is not None:
                depth -= 1
                # A braced member initialiser is followed by the next one or by the body.
                if depth == 0 and not re.match(r"\s*[,{]", code[position + 1:position + 200]):
                    found.append((name, code.count("\n", 0, begin) + 1, code.count("\n", 0, position) + 1))
                    begin, start = None, position + 1
            elif not parens:
                start = position + 1
        elif char == ";" and begin is None and not parens:
            start = position + 1
    return found


def is_table(lines):
    """Whether a function's lines are mostly rows: such a function reads like a list, whatever its length."""
    rows = [line for line in lines if re.match(r'\s*(?:case\b.*(?:return|:)|\{.*\},?|".*"[,)]?|X\()', line)]
    return len(rows) >= 0.7 * len(lines)
