"""The single faults that can be planted in a C++ source."""
import collections
import re

Fault = collections.namedtuple("Fault", "path start end text kind line")

BLANKED = re.compile(r"""//[^\n]*|^[ \t]*\#(?:\\\n|[^\n])*|static_assert\([^;]*;|\[\[[^\]]*\]\]|extern[ ]"C"
                     |(?P<text>"(?:\\.|[^"\\\n])*")|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])'""", re.M | re.X)
SWAPS = [("comparison", r"(?<= )(?:==|!=|<=|>=|<|>)(?= )",
          {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}),
         ("logic", r"&&|\|\|(?= )", {"&&": "||", "||": "&&"}),
         ("arithmetic", r"(?<= )(?:\+=?|-=?|\*|/|%|<<|>>|&|\|)(?= )|\+\+|--",
          {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "*": "/", "/": "*", "%": "/", "<<": ">>",
           ">>": "<<", "&": "|", "|": "&", "++": "--", "--": "++"}),
         ("constant", r"\b(?:true|false)\b", {"true": "false", "false": "true"})]
NUMBER = re.compile(r"(?<![\w.])(?:0x[0-9a-fA-F']+|\d[\d']*)(?=[uUlL]*\b)(?![\w.]*\.)")
STATEMENT = re.compile(r"(?<=[;{}])\s*([^;{}]+);")
CALL = re.compile(r"[\w:.>\[\]()*-]+\(.*\)", re.S)
ASSIGNMENT = re.compile(r"[\w:.>\[\]()*-]+ [-+*/|&^]?= .*|(\+\+|--)[\w.>-]+|[\w.>-]+(\+\+|--)", re.S)
GUARD = re.compile(r"(const )?[\w:]*(Lock|Guard|Hold|Cleanup|Cancel)\w*(<.*>)? \w+[({].*", re.S)


def condition_end(code, start):
    depth = 0
    for position in range(start, len(code)):
        depth += {"(": 1, ")": -1}.get(code[position], 0)
        if depth == 0:
            return position
    return start


def faults_in(path, source):
    """Every fault for the source of a file, in the order of the places."""
    texts = []

    def blank(match):
        if match.group("text"):
            texts.append(match.span())
        return re.sub(r"[^\n]", " ", match.group())

    code = BLANKED.sub(blank, source)
    found = [(start + 1, start + 1, "X", "text") for start, end in texts]
    for kind, pattern, swap in SWAPS:
        for match in re.finditer(pattern, code):
            found.append((*match.span(), swap[match.group()], kind))
    for match in NUMBER.finditer(code):
        digits = match.group().replace("'", "")
        number = int(digits, 8 if re.fullmatch("0[0-7]+", digits) else 0)
        for other in {number + 1, max(number - 1, 0)} - {number}:
            found.append((*match.span(), str(other), "constant"))
    for match in re.finditer(r"\b(?:if|while) (?=\()", code):
        end = condition_end(code, match.end())
        start = max(code.rfind(";", match.end(), end) + 1, match.end() + 1)
        condition = source[start:end]
        plain = condition.strip().startswith("!") and not re.search(r"&&|\|\|", condition)
        negated = condition.strip()[1:] if plain else f"!({condition})"
        found.append((start, end, negated, "negation"))
        if code.startswith("if", match.start()):
            found.append((start, end, " false", "condition never true"))
    for match in STATEMENT.finditer(code):
        statement, span = match.group(1), match.span(1)
        if statement.startswith("return "):
            if not re.fullmatch(r"return (-?\d+|true|false|\{\})", statement):
                found.append((*span, "return {}", "return"))
        elif GUARD.fullmatch(statement):
            found.append((*span, "", "guard removed"))
        elif ASSIGNMENT.fullmatch(statement):
            found.append((*span, "", "assignment removed"))
        elif CALL.fullmatch(statement):
            found.append((*span, "", "call removed"))
    return [Fault(path, start, end, text, kind, source.count("\n", 0, start) + 1)
            for start, end, text, kind in sorted(found)]


def describe(fault, source):
    line = source.splitlines()[fault.line - 1].strip()
    old = " ".join(source[fault.start:fault.end].split())
    change = f"`{old}` → `{' '.join(fault.text.split())}`" if old else f"`{fault.text}` put in"
    return f"`{fault.path}:{fault.line}` {fault.kind}: {change if fault.text else f'`{old}`'} in `{line}`"
