"""The mutants of a C or C++ source: every small change that a slip of the hand could make, found by its tokens.

Tokens, not a syntax tree: the bodies of macros are mutated like functions, and a tree has none of them.
"""

import dataclasses
import itertools
import random
import re

TOKEN = re.compile(
    r"""(?P<space>(?:\s|\\\n|//[^\n]*|/\*.*?\*/)+)|(?P<text>"(?:\\.|[^"\\])*")|(?P<number>\d\w*)|(?P<name>\w+)"""
    r"""|(?P<sign>->|\+\+|--|[-+*/%&|^!<>=]=|&&|\|\||<<|>>|::|\#\#|.)""", re.S)
UNIT = re.compile(r"%[-#0-9.*l]*[a-zA-Z]|\\.|.")  # of a text: what stays together

OPERATORS = {"==": ["!=", "<=", ">="], "!=": ["==", "<", ">"], "<": ["<=", ">", "!="], "<=": ["<", ">="],
             ">": [">=", "<", "!="], ">=": [">", "<="], "&&": ["||"], "||": ["&&"], "|": ["&", "^"], "+=": ["-=", "="],
             "++": ["--"], "!": [""], "-": [""]}
UNARY = {"++", "!", "-"}
FAMILIES = [  # constants that a hand takes for each other
    ["KEL_AF_UNIX", "KEL_AF_INET", "KEL_AF_INET6", "KEL_AF_PACKET"], ["AF_PACKET", "AF_INET"],
    ["KEL_SOCK_STREAM", "KEL_SOCK_DGRAM", "KEL_SOCK_RAW", "KEL_SOCK_SEQPACKET"], ["SOCK_RAW", "SOCK_DGRAM"],
    ["KEL_OK", "KEL_ERROR", "1", "(-2)"], ["KEL_TRUE", "KEL_FALSE", "2"], ["true", "false"],
    ["SCTP_INITMSG", "SCTP_EVENTS"], ["SOL_SOCKET", "SOL_SCTP", "IPPROTO_IPV6"], ["SO_REUSEADDR", "SO_REUSEPORT"],
    ["IPV6_V6ONLY", "SO_REUSEADDR"], ["IPPROTO_SCTP", "0", "IPPROTO_TCP"], ["IPV4_ANY_STR", "IPV6_ANY_STR", "NULL"],
    ["SCTP_BINDX_ADD_ADDR", "2"], ["SIOCGIFINDEX", "SIOCGIFHWADDR", "SIOCGIFFLAGS"], ["PATTERN_IPV4", "PATTERN_IPV6"],
    ["REG_EXTENDED", "0"], ["REG_ICASE", "0", "REG_NEWLINE"], ["IFNAMSIZ", "(IFNAMSIZ - 1)", "(IFNAMSIZ + 1)"],
    ["SIZE_MAX", "0", "1", "(SIZE_MAX / 2)"], ["NULL", '""', "(-1)"], ["SYSLOG_WARNING", "SYSLOG_ERR", "SYSLOG_INFO"],
    ["_kel_print_lv_info", "_kel_print_lv_warning", "_kel_print_lv_err"], ["__LINE__", "0", "(__LINE__ + 1)"],
    ["KEL_COLOR_NONE", "KEL_COLOR_RED", "KEL_COLOR_BLUE", "KEL_COLOR_PURPLE"], ["__func__", "__FILE__"],
    ["sctp_getpaddrs", "sctp_getladdrs"], ["sctp_freepaddrs", "sctp_freeladdrs"], ["kel_bindx", "kel_connectx"]]
NARROWED = {  # by the type; what a narrower one changes, a still narrower one changes, too
    "int": ["short", "unsigned"], "LONG": ["int", "short", "ULONG"], "size_t": ["int", "short"],
    "uint16_t": ["UCHAR", "int16_t"], "uint32_t": ["uint16_t", "int16_t"], "ULONG": ["UCHAR"], "socklen_t": ["UCHAR"],
    "sa_family_t": ["UCHAR"], "SHORT": ["char", "UCHAR"], "unsigned char": ["signed char"]}
TYPES = set(NARROWED) | {"unsigned", "char"}
RELEASES = {"tc_free", "close", "kel_close", "regfree", "sctp_freepaddrs", "sctp_freeladdrs"}
CONTROL = {"if", "for", "while", "switch"}
KEYWORDS = CONTROL | {"return", "sizeof", "case", "do", "else", "defined", "static_assert", "__attribute__", "extern"}


@dataclasses.dataclass
class Mutant:
    path: str
    function: str
    kind: str
    key: str  # what the list of the reasoned ones calls it
    whole: str
    start: int
    end: int
    new: str

    @property
    def source(self):
        return self.whole[:self.start] + self.new + self.whole[self.end:]


@dataclasses.dataclass
class Statement:
    first: int  # tokens, the last one excluded
    last: int
    kind: str  # simple, block, label, or the keyword


class Source:
    """One file, its functions and macros, and the mutants of them."""

    def __init__(self, path, source):
        self.path, self.source = path, source
        self.tokens = []
        self.macros = path.endswith(".h")  # a line more or less is of no account there
        hidden = re.sub(r"^[ \t]*#(?!define).*(\n)", lambda line: " " * (len(line[0]) - 1) + "\n", source, flags=re.M)
        for found in TOKEN.finditer(hidden):
            if found.lastgroup != "space":
                self.tokens.append((found.lastgroup, found[0], found.start(), found.end()))
        self.pair = {}
        open_ones = []
        for i, (_, text, _, _) in enumerate(self.tokens):
            if text in "([{":
                open_ones.append(i)
            elif text in ")]}":
                self.pair[i] = open_ones.pop()
                self.pair[self.pair[i]] = i
        self.made, self.seen = [], set()

    def text(self, i):
        return self.tokens[i][1] if 0 <= i < len(self.tokens) else ""

    def between(self, first, last):
        """The source of tokens, the last one excluded."""
        return self.source[self.tokens[first][2]:self.tokens[last - 1][3]]

    def functions(self):
        """Name, header and body, in tokens, of every function, macro and enumeration."""
        i = 0
        while i < len(self.tokens):
            if self.text(i) == "#" and self.text(i + 1) == "define":
                end = self.source.find("\n", self.tokens[i][2])
                while self.source[end - 1] == "\\":
                    end = self.source.find("\n", end + 1)
                last = next((k for k in range(i, len(self.tokens)) if self.tokens[k][2] >= end), len(self.tokens))
                name, body = self.text(i + 2), i + 3
                if self.text(body) == "(" and self.tokens[body][2] == self.tokens[body - 1][3]:
                    body = self.pair[body] + 1
                yield name, (body, body), (body, last)
                i = last
            elif self.text(i) == "enum" and self.text(i + 1) == "{":
                last = self.pair[i + 1]
                yield self.text(last + 1), (i, i), (i + 2, last)
                i = last + 1
            elif self.text(i) == "{" and self.text(i - 1) == ")":
                header = self.pair[i - 1]
                yield self.text(header - 1), (header + 1, i - 1), (i + 1, self.pair[i])
                i = self.pair[i] + 1
            else:
                i += 1

    def change(self, kind, first, last, new, unseen="{new}"):
        """
        Makes a mutant: the tokens first to last, the last one excluded, become another text. What is only left out
        stays in the source, where it is never reached: the compiler is not to complain of a parameter without use.
        """
        start, end = self.tokens[first][2], self.tokens[last - 1][3]
        old = self.source[start:end]
        if old == new or (start, end, new) in self.seen:
            return
        self.seen.add((start, end, new))
        line = self.source.rfind("\n", 0, start) + 1
        stop = self.source.find("\n", end)
        shown = f"{self.source[line:start]}{{{{{old} => {new}}}}}{self.source[end:stop]}"
        shown = re.sub(r"\s*\\$|^#line.*\n", "", shown, flags=re.M)
        shown = re.sub(r"\s+", " ", shown).strip()
        shown = f"{shown[:100]}...{shown[-60:]}" if len(shown) > 170 else shown
        new = unseen.format(old=old, new=new) if "{old}" in unseen else new
        if not self.macros and "\n#line" not in new:
            new += "\n" * (old.count("\n") - new.count("\n"))
        self.made.append(Mutant(self.path, self.function, kind, shown, self.source, start, end, new))

    def at_own_line(self, i, text):
        """A text that says it stands on the line of a token, for reports carry it."""
        line = self.source.count("\n", 0, self.tokens[i][2]) + 1
        return text if self.macros else f"\n#line {line}\n{text}"

    # ---- Statements ---------------------------------------------------------------------------------------------

    def statements(self, i, end):
        found = []
        while i < end:
            found.append(self.statement(i, end))
            i = found[-1].last
        return found

    def statement(self, i, end):
        """The statement at a token; what lies in it is mutated on the way."""
        text = self.text(i)
        if text == "{":
            self.block(i + 1, self.pair[i])
            return Statement(i, self.pair[i] + 1, "block")
        if text in CONTROL:
            head = i + 1 if self.text(i + 1) == "(" else i + 2  # if constexpr
            last = self.pair[head] + 1
            if last < end:
                last = self.statement(last, end).last
            if text == "if" and last < end and self.text(last) == "else":
                start, last = last, self.statement(last + 1, end).last
                self.change("deleted", start, last, "")
            if text != "switch":
                self.condition(*self.parts(head + 1, self.pair[head], ";")[1 if text == "for" else 0])
            return Statement(i, last, text)
        if text == "do":
            body = self.statement(i + 1, end)
            last = self.pair[body.last + 1] + 1
            return Statement(i, last + (self.text(last) == ";"), "do")
        if text in {"case", "default"}:
            last = i
            while self.text(last) != ":":
                last += 1
            return Statement(i, last + 1, "label")
        last = i
        while last < end and self.text(last) != ";":
            if self.text(last) == "{" and self.text(last - 1) == ")" and last > i:
                last = self.statement(last, end).last  # a macro that opens a statement, and what it governs
                if last < end and self.text(last) == "else":
                    last = self.statement(last + 1, end).last
                return Statement(i, last, "headed")
            last = self.pair[last] + 1 if self.text(last) in {"(", "[", "{"} else last + 1
        return Statement(i, min(last + 1, end), "simple")

    def block(self, i, end):
        inside = self.statements(i, end)
        for one in inside:
            if one.kind == "block" or self.declares(one.first):
                continue
            release = one.kind == "simple" and RELEASES & {self.text(one.first)}
            kind = "release" if release else "deleted"
            if one.kind != "if" or self.has_else(one):
                self.change(kind, one.first, one.last, "", "" if one.kind == "label" else "if (0) {old}")
            if release:
                self.change(kind, one.first, one.last, self.between(one.first, one.last) * 2)
        for one, other in zip(inside, inside[1:]):
            # What jumps away does not move, nor what needs the declaration in front of it.
            if {"block", "label"} & {one.kind, other.kind} or {"return", "break"} & {self.text(other.first)} or \
                    self.declares(one.first) & self.names(other.first, other.last):
                continue
            check = all(self.text(s.first) in {"NULL_CHECK", "NULL_CHECK_RP", "RET_CHECK"} or
                        s.kind == "if" and "return" in self.between(s.first, s.last) for s in (one, other))
            self.change("order of checks" if check else "swapped", one.first, other.last, " ".join((
                self.at_own_line(other.first, self.between(other.first, other.last)),
                self.at_own_line(one.first, self.between(one.first, one.last)),
                self.at_own_line(other.last - 1, ""))))

    def has_else(self, one):
        return any(self.text(i) == "else" for i in self.flat(one.first, one.last))

    def names(self, first, last):
        return {self.text(i) for i in range(first, last)}

    def declares(self, i):
        """The name that is declared at a token, if one is."""
        while self.text(i) in {"const", "struct", "static", "unsigned"}:
            i += 1
        star = 1 if self.text(i + 1) == "*" else 0
        name = self.tokens[i + 1 + star] if i + 1 + star < len(self.tokens) else ("", "")
        if self.tokens[i][0] == name[0] == "name" and self.text(i) not in KEYWORDS:
            self.pointers |= {name[1]} if star or self.text(i + 2) == "[" else set()
            return {name[1]}
        return set()

    # ---- Expressions --------------------------------------------------------------------------------------------

    def condition(self, first, last):
        """A condition and, joined by && and ||, its parts: negated, made true, made false."""
        whole = self.between(first, last)
        for new, unseen in ((f"!({whole})", ""), ("1", "(1 || ({old}))"), ("0", "(0 && ({old}))")):
            self.change("condition", first, last, new, unseen)
        if self.text(first) == "(" and self.pair[first] == last - 1:
            self.condition(first + 1, last - 1)
            return
        if self.text(first) == "!" and self.text(first + 1) == "(" and self.pair[first + 1] == last - 1:
            self.condition(first + 2, last - 1)
            return
        for joint in ("||", "&&"):
            parts = self.parts(first, last, joint)
            if len(parts) > 1:
                for start, end in parts:
                    self.condition(start, end)
                return

    def flat(self, first, last):
        """The tokens of a stretch that lie in none of its brackets."""
        i = first
        while i < last:
            yield i
            i = self.pair[i] + 1 if self.text(i) in {"(", "[", "{"} else i + 1

    def parts(self, first, last, joint=","):
        """A stretch, cut at the joints that lie in none of its brackets."""
        cuts = [i for i in self.flat(first, last) if self.text(i) == joint]
        return list(zip([first] + [cut + 1 for cut in cuts], cuts + [last]))

    def expression_start(self, i, begin):
        """Where the expression begins that ends before a token."""
        while i > begin and self.text(i - 1) not in {"(", ",", "=", ";", "{", "return", "}", "?", ":"}:
            i = self.pair[i - 1] if self.text(i - 1) in {")", "]"} else i - 1
        return i

    def is_pointer(self, first, last):
        return self.text(first) in {"&", "NULL", "static_cast", "reinterpret_cast"} or \
            self.tokens[first][0] == "text" or last == first + 1 and self.text(first) in self.pointers

    def narrow(self, first, last):
        value = self.between(first, last)
        if self.is_pointer(first, last) or self.tokens[first][0] == "number" or value.isupper() or \
                self.text(first) in {"(", "-", "!"}:
            return
        for kind in ("int", "short"):
            self.change("narrowed", first, last, f"({kind})({value})")

    def result(self, first, last):
        if not self.between(first, last).isupper() and not self.is_pointer(first, last):
            for new in ("0", "(-1)", "1"):
                self.change("result", first, last, new, "(0 ? {old} : {new})")

    def call(self, i, statement):
        """The arguments of the call whose bracket is at a token, and its result."""
        arguments = self.parts(i + 1, self.pair[i])
        if arguments[0][0] == arguments[0][1]:
            return
        for first, last in arguments:
            if self.between(first, last) not in {"0", "NULL"}:
                self.change("argument", first, last, "0", "(0 ? {old} : 0)")
            self.narrow(first, last)
        for (first, last), (start, end) in itertools.combinations(arguments, 2):
            if self.is_pointer(first, last) == self.is_pointer(start, end):
                self.change("argument", first, end,
                            self.between(start, end) + self.source[self.tokens[last - 1][3]:self.tokens[start][2]] +
                            self.between(first, last))
        if i - 1 != statement and self.text(i - 2) not in {".", "->"}:
            self.result(i - 1, self.pair[i] + 1)
            if len(arguments) == 1:
                self.change("call", i - 1, self.pair[i] + 1, f"({self.between(i + 1, self.pair[i])})")

    def expressions(self, begin, end, parameters):
        first_of_statement = begin  # a call that stands there has no result that is used
        for i in range(begin, end):
            kind, text, start, _ = self.tokens[i]
            before, behind = self.text(i - 1), self.text(i + 1)
            if before in {";", "{", "}", ")", "else", ":"} or i == begin:
                first_of_statement = i
            if kind == "text":
                self.letters(i)
            elif kind == "number":
                value = int(text, 0)
                for new in dict.fromkeys([value + 1, value - 1, 0]):
                    self.change("constant", i, i + 1, str(new) if new >= 0 else f"({new})")
            elif text in OPERATORS and (text in UNARY or self.source[start - 1] == " "):
                for new in OPERATORS[text]:
                    self.change("operator", i, i + 1, new)
            elif text == "?":
                self.condition(self.expression_start(i, begin), i)
            elif text == "sizeof" and behind == "(":
                whole = self.between(i, self.pair[i + 1] + 1)
                for new in (f"({whole} - 1)", f"({whole} + 1)", "0", "sizeof(void *)"):
                    self.change("sizeof", i, self.pair[i + 1] + 1, new)
            elif text == "return" and behind != ";":
                last = next(k for k in self.flat(i + 1, end) if self.text(k) == ";")
                self.result(i + 1, last)
                self.narrow(i + 1, last)
                if {"==", "||", "&&"} & {self.text(k) for k in self.flat(i + 1, last)}:
                    self.condition(i + 1, last)
            elif text == "(" and self.cast(i):
                inner = self.between(i + 1, self.pair[i])
                for new in [""] + [f"({new})" for new in NARROWED.get(inner, [])]:
                    self.change("cast", i, self.pair[i] + 1, new)
            if kind == "name" and text not in KEYWORDS:
                for family in FAMILIES:
                    for new in family if text in family else []:
                        self.change("constant", i, i + 1, new)
                if behind == "(":
                    self.call(i + 1, first_of_statement)
                if text in NARROWED and self.tokens[i + 1][0] == "name" and before != "(":
                    for new in NARROWED[text]:
                        self.change("type", i, i + 1, new)
                for other in parameters.get(text, []) if before not in {".", "->"} else []:
                    self.change("name", i, i + 1, other)

    def cast(self, i):
        inside = [self.text(k) for k in range(i + 1, self.pair[i])]
        follower = self.tokens[self.pair[i] + 1] if self.pair[i] + 1 < len(self.tokens) else ("", "", 0, 0)
        return bool(inside) and all(text in TYPES for text in inside) and \
            (follower[0] in {"name", "number"} or follower[1] in {"(", "-"})

    def letters(self, i):
        """A text with a letter changed, with one more, and cut; of a pattern every character by itself."""
        units = UNIT.findall(self.text(i)[1:-1])
        if "PATTERN" in self.function:
            for k, unit in enumerate(units):
                near = [chr(ord(unit) - 1), chr(ord(unit) + 1)] if unit.isalnum() else \
                    {"?": "*+", "^": ".", "$": ".", ":": ".", "-": ",", "|": ":", "\\\\": "."}.get(unit, "")
                for new in near:
                    self.change("pattern", i, i + 1, f'"{"".join(units[:k] + [new] + units[k + 1:])}"')
            return
        if not units:
            return
        changes = [units[1:], units[:-1], [*units, "x"], []]
        words = [k for k, unit in enumerate(units) if unit.isalpha()]
        if words:
            for k in {words[0], random.Random(self.text(i)).choice(words), words[-1]}:
                changes.append(units[:k] + [units[k].swapcase()] + units[k + 1:])
        for new in changes:
            self.change("letter", i, i + 1, f'"{"".join(new)}"')

    def types_of(self, header):
        """The other parameters of the same type, for each parameter."""
        same = {}
        for first, last in self.parts(*header):
            if last - first > 1:
                same.setdefault(self.between(first, last - 1), []).append(self.text(last - 1))
        return {name: [other for other in names if other != name] for names in same.values() for name in names}

    def mutants(self):
        for self.function, header, body in self.functions():
            self.pointers = set()
            for first, last in self.parts(*header):
                if "*" in self.names(first, last):
                    self.pointers.add(self.text(last - 1))
            if "static" in self.names(max(header[0] - 6, 0), header[0]):
                self.expressions(*header, {})
            if self.text(body[0] - 2) != "enum":
                self.block(*body)
            self.expressions(*body, self.types_of(header))
        count = {}
        for one in self.made:
            place = (one.function, one.kind, one.key)
            count[place] = count.get(place, 0) + 1
            one.key = f"{one.function}: {one.kind}: {one.key}" + (f" #{count[place]}" if count[place] > 1 else "")
        return self.made
