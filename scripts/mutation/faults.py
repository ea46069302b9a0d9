"""Finds the places of a C++ source where a single fault can be planted."""
import collections
import re

# The text from begin to end is replaced by new; original and changed are for people.
Fault = collections.namedtuple("Fault", "path line operator begin end new original changed")
# A statement up to its semicolon; block numbers the braces around it, head is what opened them.
Statement = collections.namedtuple("Statement", "begin end block head")

_NOT_CODE = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'"
    r"|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*|\bstatic_assert\s*\(.*?\);", re.S | re.M)
_SCOPE = re.compile(r"\s*(?:\w+:)?\s*(?:template\s*<.*>\s*)?(?:inline\s+)?"
                    r"(namespace|class|struct|union|enum|extern)\b[^(]*$", re.S)
_LAMBDA = re.compile(r"\[[^\[\]]*\]\s*(\([^()]*\)\s*)?(mutable\s*)?$")
_BLOCK = re.compile(r"(^|[);}]|\b(?:else|do|try|const|override|noexcept|final))\s*$")

_NAME = r"\*?[\w:]+(?:<[^<>;()]*>)?(?:(?:->|\.)\w+|\[[^\[\]]*\]|\([^()]*\))*"
_ASSIGNMENT = re.compile(rf"(?:{_NAME} (?:[-+*|&^]|<<|>>)?= .*|\+\+{_NAME}|--{_NAME}|{_NAME}(?:\+\+|--))", re.S)
_CALL = re.compile(rf"(?!(?:if|for|while|switch|return)\b)(?:delete (?:\[\] )?)?{_NAME}\(.*\)|delete .*", re.S)
_LOCK = re.compile(r"(?:const )?(?:std::(?:lock_guard|unique_lock|scoped_lock)\b[^(]*|\w*Lock) \w+[({].*", re.S)
_EXIT = re.compile(r"(?:return|continue|break|throw)\b")
_LABEL = re.compile(r"(?:(?:case [^?;]*?|default|public|private|protected)(?<!:):(?!:)\s*)+")

_FLAG = r"(?!O_RDONLY)(?:[A-Z]+_[A-Z_]+|k[A-Z]\w+)"
# Operator, pattern and what its group 1 becomes.
_TOKENS = [
    ("relation", r" (<=|>=|<|>|==|!=)\s",
     {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}.get),
    ("logic", r" (&&|\|\|)\s", {"&&": "||", "||": "&&"}.get),
    ("arithmetic", r" ([-+]=?) ", {"+": "-", "-": "+", "+=": "-=", "-=": "+="}.get),
    ("arithmetic", r"(\+\+|--)", {"++": "--", "--": "++"}.get),
    ("shift", r" ((?:<<|>>)=?) ", {"<<": ">>", ">>": "<<", "<<=": ">>=", ">>=": "<<="}.get),
    ("constant", r"(?<![\w.])(0x[0-9a-fA-F']+|\d[\d']*)(?=[uUlL]*\b)(?!\.)", lambda text: _one_more(text)),
    ("constant", r"\b(true|false)\b", {"true": "false", "false": "true"}.get),
    ("flag", rf"(?<!\| )\b({_FLAG} \|\s+)", lambda text: ""),
    ("flag", rf"( \|\s+{_FLAG})\b(?!\()", lambda text: ""),
    ("flag", r", ((?:AT|O)_[A-Z_]+)\)", lambda text: "0"),
]


def _one_more(text):
    digits = text.replace("'", "")
    return f"0x{int(digits, 16) + 1:X}" if digits.startswith("0x") else str(int(digits) + 1)


def _blank(match):
    filler = "_" if match.group()[0] in "\"'R" else " "
    return re.sub(r"[^\n]", filler, match.group())


def _scan(code):
    """The statements inside functions, and for each character whether an expression there is code
    that runs: in functions, and what initialises a variable or a member."""
    runs = bytearray(len(code))
    statements = []
    blocks = [("scope", 0, "")]  # kind, number, head
    outer = []  # where the statement around a brace began, at which depth of parentheses, or None
    begin = depth = count = 0

    def finish(end):
        text = code[begin:end]
        first = begin + len(text) - len(text.lstrip())
        label = _LABEL.match(code, first, end)
        first = label.end() if label else first
        kind, number, head = blocks[-1]
        if kind == "code":
            statements.append(Statement(first, end + 1, number, head))
        elif kind == "scope" and re.search(r"[^=!<>]= (?!0$|default$|delete$)", text) and "operator" not in text:
            at = begin + text.index("= ")
            runs[at:end] = b"\1" * (end - at)

    for i, c in enumerate(code):
        if blocks[-1][0] == "code":
            runs[i] = 1
        if c in "([":
            depth += 1
        elif c in ")]":
            depth -= 1
        elif c == "{":
            head = code[begin:i]
            scope = _SCOPE.match(head)
            is_lambda = _LAMBDA.search(head)
            if not scope and not is_lambda and (depth or not _BLOCK.search(head)):
                outer.append(None)  # an initialiser
                depth += 1
                continue
            count += 1
            kind = ("enum" if scope.group(1) == "enum" else "scope") if scope else "code"
            outer.append((begin, depth, is_lambda))
            blocks.append((kind, count, head.strip()))
            begin, depth = i + 1, 0
        elif c == "}":
            around = outer.pop()
            if around is None:
                depth -= 1
                continue
            blocks.pop()
            begin, depth = (around[0], around[1]) if around[2] else (i + 1, 0)
        elif c == ";" and depth == 0:
            finish(i)
            begin = i + 1
    return statements, runs


def _conditions(code, runs):
    """Begin and end of what stands in the parentheses of each if and while."""
    for match in re.finditer(r"\b(?:if|while) \(", code):
        end, depth = match.end(), 1
        while depth:
            depth += {"(": 1, ")": -1}.get(code[end], 0)
            end += 1
        inside = code[match.end():end - 1]
        declares = re.match(r"[\w:<>]+(?: [\w:<>]+)?[*&]? [*&]?\w+ = ", inside)
        compares = re.fullmatch(r"[^&|]* (==|!=)\s[^&|]*", inside, re.S)
        if runs[match.start()] and not declares and not compares and inside != "true":
            yield match.end(), end - 1


def _is_independent(first, second):
    """Two assignments of which neither reads what the other sets: their order says nothing."""
    if "(" in first + second or not all(re.search(r" [-+*|&^]?= ", text) for text in (first, second)):
        return False
    set_first, set_second = first.split(" ")[0], second.split(" ")[0]
    return set_first not in second and set_second not in first


def _one_line(text):
    return " ".join(text.split())


def find(path, text):
    """Every fault of one source, in the order of its lines."""
    code = _NOT_CODE.sub(_blank, text)
    statements, runs = _scan(code)
    faults = []

    def add(operator, begin, end, new, whole=False):
        first = begin if whole else text.rindex("\n", 0, begin) + 1 if "\n" in text[:begin] else 0
        last = end if whole else text.find("\n", end)
        changed = _one_line(text[first:begin] + new + text[end:last]) or "(dropped)"
        faults.append(Fault(path, text.count("\n", 0, begin) + 1, operator, begin, end, new,
                            _one_line(text[first:last]), changed))

    for operator, pattern, change in _TOKENS:
        for match in re.finditer(pattern, code):
            if runs[match.start(1)]:
                add(operator, match.start(1), match.end(1), change(match.group(1)))
    for begin, end in _conditions(code, runs):
        add("condition", begin, end, f"!({text[begin:end]})")

    previous = None
    for statement in statements:
        own = code[statement.begin:statement.end - 1]
        is_plain = bool(_ASSIGNMENT.fullmatch(own) or _CALL.fullmatch(own))
        is_guarded = re.match(r"(?:if|else|for|while)\b", statement.head)
        drop = ("lock" if _LOCK.fullmatch(own) else
                "statement" if is_plain else
                "exit" if _EXIT.match(own) and is_guarded else
                ("exit" if _EXIT.search(own) else "statement") if re.match(r"(if|else|for|while) ", own) else None)
        if drop:
            add(drop, statement.begin, statement.end, "", whole=True)
        if (is_plain and previous and previous.block == statement.block and
                not code[previous.end:statement.begin].strip() and
                not _is_independent(code[previous.begin:previous.end], own)):
            first, second = text[previous.begin:previous.end], text[statement.begin:statement.end]
            between = text[previous.end:statement.begin]
            add("order", previous.begin, statement.end, second + between + first, whole=True)
        previous = statement if is_plain else None
    return sorted(set(faults), key=lambda fault: (fault.begin, fault.end, fault.new))
