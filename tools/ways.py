"""Every way through each function, as tests/behaviour states it: the text is read into steps, and the steps are run with
values that stay text. What nobody can know before goes both ways: there is a run for each, and each run has at every
call that can fail what follows when it does."""

import copy
import glob
import re
import sys
from itertools import count
from types import SimpleNamespace as Node

NAMES, FUNCTIONS, numbers = {}, {}, count()


# ---- Reading: lines, their statements by indentation. Values stay text ----------------------------------------------

def lines_of(path):
    """The lines of one file but its trials, with the comments above and beside them."""
    lines, going_on, about, trials = [], False, [], False
    for source in open(path, encoding="utf-8"):
        text, note = re.fullmatch(r'((?:"[^"]*"|[^"#])*)(?:# *(.*))?', source.rstrip("\n")).groups()
        trials = text.startswith("  tried") or trials and text[:1] in ("", " ")
        if not text:
            about = about + [note] if note else []
        elif going_on:
            lines[-1].text += " " + text.strip()
        elif text.strip() and not trials:
            lines.append(Node(indent=len(text) - len(text.lstrip()), text=text.strip(), note=note, about=about))
            about = []
        going_on = text.rstrip().endswith(",") and not trials
    return lines


def items(text, separator):
    """The parts of a text, as they are separated outside of quotes and brackets."""
    found, depth = [""], 0
    for piece in re.findall(r'"[^"]*"|.', text):
        depth += (piece in ("(", "[")) - (piece in (")", "]"))
        found = found + [""] if piece == separator and depth == 0 else found[:-1] + [found[-1] + piece]
    return [part.strip() for part in found if part.strip()]


def simple(text, note=None):
    """The statements that one line has."""
    found = []
    for part in items(text, ";"):
        step = Node(n=next(numbers), text=part, note=note, branches=[])
        if match := re.fullmatch(r"(?:(\w+) = |(result) )?(\w+)\((.*)\)(?: -> (\w+)(?: in 32 bits)?)?", part):
            vars(step).update(kind="call", name=match[3], arguments=items(match[4], ","),
                              target=match[1] or match[5] or (match[2] and "answer"))
            for i, argument in enumerate(step.arguments):
                if argument.startswith("__"):  # what has no heading of its own in the document is written out
                    found += simple(f"chosen{i} = {argument}")
                    step.arguments[i], step.n = f"chosen{i}", next(numbers)
            found.append(step)
            if match[2]:
                found += simple("result answer")
            continue
        if match := re.fullmatch(r"null (\w+): refused( with null)?", part):
            body = simple(f'report "{match[1]} is null\\r\\n"; result {"null" if match[2] else "-1"}')
            vars(step).update(kind="refuse", value=match[1], then=body)
        elif match := re.fullmatch(r"result (.*)", part):
            vars(step).update(kind="result", value=match[1])
        elif match := re.fullmatch(r"local (\w+) of .* bytes", part):
            vars(step).update(kind="let", target=match[1], value=None)
        elif match := re.fullmatch(r"(\w+) = (.*)", part):
            vars(step).update(kind="let", target=match[1], value=match[2])
        elif match := re.fullmatch(r"(.+)\.(\w+) = (.*)", part):
            vars(step).update(kind="store", place=match[1], field=match[2], value=match[3])
        elif part.startswith(("report ", "assertion fails")):
            step.kind = "report"
        else:
            sys.exit(f"tools/behaviour cannot read this line: {text}")
        found.append(step)
    return found


def body(lines, line, inline):
    return simple(inline, line.note) if inline else block(lines, line.indent)


def block(lines, outside):
    found = []
    while lines and lines[0].indent > outside:
        found += statement(lines)
    return found


def statement(lines):
    line = lines.pop(0)
    if match := re.fullmatch(r"(if|for each) ([^:]+)(?:: (.*))?", line.text):
        step = Node(n=next(numbers), kind="choose" if match[1] == "if" else "repeat", text=match[2], other=[])
        step.then = body(lines, line, match[3])
        if match[1] == "if" and lines and lines[0].indent == line.indent and lines[0].text.startswith("else"):
            lines[0].text = lines[0].text[4:].lstrip(": ")
            step.other = statement(lines) if lines[0].text else body(lines, lines.pop(0), None)
        return [step]
    found = simple(line.text, line.note)
    while lines and lines[0].indent > line.indent:
        branch = lines.pop(0)
        words, inline = re.fullmatch(r"([^:]+)(?:: (.*))?", branch.text).groups()
        found[-1].branches.append(Node(words=words, then=body(lines, branch, inline)))
    return found


def read():
    divisions = []
    for path in sorted(glob.glob("tests/behaviour/*.txt"), key=lambda path: (not path.endswith("/names.txt"), path)):
        lines, own = lines_of(path), []
        if path.endswith("/errno.txt"):
            continue
        first = re.match(r"(?:#.*\n)+", open(path, encoding="utf-8").read())[0]
        while lines:
            line = lines.pop(0)
            if match := re.fullmatch(r"(\w+) = (-?\w+)", line.text):
                NAMES[match[1]] = int(match[2], 0)
            elif match := re.fullmatch(r"(\w+)\((.*)\)", line.text):
                parameters, below = [part.split()[-1] for part in items(match[2], ",")], list(lines)
                own.append(Node(name=match[1], text=line.text, about=" ".join(line.about), parameters=parameters,
                                steps=block(lines, 0)))
                own[-1].lines = [inner.text for inner in below[:len(below) - len(lines)]]
                FUNCTIONS[match[1]] = own[-1]
        if own:
            title, about = re.sub(r"\n?# ?", " ", first).strip().split(": ", 1)
            divisions.append(Node(title=title, about=about[0].upper() + about[1:], functions=own))
    return divisions


# ---- Running: one way through a function, with the ways that leave it at each step ----------------------------------

class Both(Exception):
    """Behind a failure: what comes now can go either way, so the failure was none, and the function goes on."""


def number(text):
    return int(text, 0) if re.fullmatch(r"-?(0x)?\d+", text) else NAMES.get(text)


def universe():
    """Numbers that stand for all."""
    return {-1, 0, 1, 99} | {NAMES[name] for name in ("unix", "inet", "inet6", "packet")}


HOLDS = {"": lambda x, of: x in of, "not ": lambda x, of: x not in of, "below ": lambda x, of: x < of[0],
         "above ": lambda x, of: x > of[0]}
BRANCHES = {"negative": "below 0", "null": "0", "not above 0": "below 1"}


class Run:
    def __init__(self, name, decisions):
        self.frames, self.rows, self.trail, self.taken, self.decided = [], [], None, [], []
        self.facts, self.memory, self.origins, self.tested = {}, {}, {}, {}
        self.decisions, self.descriptor, self.last, self.own = decisions, None, "", set()
        self.enter(FUNCTIONS[name], FUNCTIONS[name].parameters, None, ())
        while self.frames:
            self.step()

    def step(self):
        steps, at, loop = self.frames[-1].todo[-1]
        if at == len(steps):
            self.frames[-1].todo.pop()
        else:
            self.frames[-1].todo[-1] = (steps, at + 1, loop)
            self.position = self.frames[-1].key + (steps[at].n,)
            getattr(self, steps[at].kind)(steps[at])

    def enter(self, function, arguments, site, key):
        values = dict(zip(function.parameters, arguments))
        self.frames.append(Node(name=function.name, values=values, site=site, key=key, todo=[(function.steps, 0, None)]))

    def value(self, text):
        values = self.frames[-1].values
        text = re.sub(r'"[^"]*"|(?<![.\w])[A-Za-z_]\w*(?![\w(])', lambda word: values.get(word[0], word[0]), text)
        text = re.sub(r"text \w+ of \[(.*)\]", r"\1", text)
        return self.memory.get(re.sub(r"record \w+ of ", "", text), text)

    def allowed(self, text):
        known = {99} if re.fullmatch(r'["&[].*|record [^.]*|[A-Z_0-9]+', text) else universe()
        return {number(text)} if number(text) is not None else self.facts.get(text, known)

    def emit(self, step, name, arguments=None, target=None, fails=()):
        if self.trail is not None:
            self.trail.append(shown(name, arguments))
            return
        loops = [loop for frame in self.frames for _, _, loop in frame.todo if loop]
        note = [step.note, *(frame.site.note for frame in self.frames[1:2])][-1]
        self.rows.append(Node(key=self.position, loops=loops, name=name, arguments=arguments, target=target, note=note,
                              fails=list(fails)))

    def fail(self, then, about, holds):
        """What follows a failure: the steps up to the end, or up to where the function goes on."""
        other = copy.copy(self)
        other.frames = [Node(**{**vars(f), "values": dict(f.values), "todo": list(f.todo)}) for f in self.frames]
        other.facts, other.memory, other.trail, other.last = {**self.facts, about: holds}, dict(self.memory), [], ""
        other.frames[-1].todo.append((then, 0, None))
        other.depth, other.kept = len(self.frames), 0
        try:
            while other.frames:
                other.step()
        except Both:
            return (*other.trail[:other.kept], "goes on" + other.last), ""
        closed = [event for event in other.trail if event == f"close({self.descriptor})"]
        has_none = self.descriptor is None or about == self.descriptor and -1 in holds
        return tuple(other.trail), "" if has_none else ("left open", "closed", "closed twice")[len(closed)]

    def end(self, step, then, about):
        """Ends this way with a failure, unless the function goes on."""
        trail = self.fail(then, about, self.allowed(about)) if self.trail is None else None
        if trail is None or trail[0][-1].startswith("goes on"):
            self.frames[-1].todo.append((then, 0, None))
        else:
            self.emit(step, "", fails=[("", trail)])
            self.frames = []

    def follow(self, step, result):
        for branch in step.branches:
            word, of = re.fullmatch(r"(not |below )?(-?\d+)", BRANCHES.get(branch.words, branch.words)).groups("")
            allowed = self.allowed(result)
            holds = {x for x in allowed if HOLDS[word](x, [int(of)])}
            if holds == allowed:
                self.end(step, branch.then, result)
                return
            if holds and self.trail is not None:
                raise Both
            if holds:
                words = "0" if holds == {0} else branch.words if -1 in holds else "above 0"
                trail = self.fail(branch.then, result, holds)
                if self.origins.get(result) is self.rows[-1]:
                    self.rows[-1].fails.append((words, trail))
                else:  # the test comes later than the call
                    self.emit(step, f"if {result} is {words}", fails=[("", trail)])
                self.facts[result] = allowed - holds

    def decide(self, condition):
        for one in condition.split(" and "):
            left, word, rights = re.fullmatch(r"(.+) is (not |below |above |)(.+)", one).groups()
            left, rights = self.value(left), [self.value(right) for right in rights.split(" or ")]
            of = [number(right) for right in rights]
            if None in of:
                left, of, allowed = f"{left} is {rights[0]}", [1], self.facts.get(f"{left} is {rights[0]}", {0, 1})
            else:
                allowed = self.allowed(left)
            holds = {x for x in allowed if HOLDS[word](x, of)}
            choice = bool(holds)
            if holds and holds != allowed:
                if self.trail is not None:
                    raise Both
                choice = self.decisions[len(self.taken)] if len(self.taken) < len(self.decisions) else True
                self.taken.append(choice)
                self.facts[left] = holds if choice else allowed - holds
                self.decided.append(left)
            self.tested.setdefault(left, {}).update(zip(of, rights))
            if not choice:
                return False
        return True

    # ---- The kinds of steps ----

    def choose(self, step):
        try:
            self.frames[-1].todo.append((step.then if self.decide(step.text) else step.other, 0, None))
        except Both:
            if [inner.kind for inner in step.then + step.other] != ["call"] or step.then[0].name in FUNCTIONS:
                raise
            self.emit(step, f"if {self.value(step.text)}: {self.value(step.then[0].text)}")

    def repeat(self, step):
        self.frames[-1].todo.append((step.then, 0, self.value(step.text)))

    def let(self, step):
        fresh = step.value is None or step.value[0] in "&"
        self.frames[-1].values[step.target] = step.target if fresh else self.value(step.value)
        if fresh:
            self.forget(step.target, {99})
            self.own.add(step.target)

    def forget(self, name, allowed):
        self.facts[name] = allowed
        self.memory = {place: value for place, value in self.memory.items() if not place.startswith(name + ".")}

    def is_own(self, place):
        """Memory that a function within has for itself: what is written there does not show."""
        return len(self.frames) > 1 and re.match(r"(?:record \w+ of )?(\w+)", place)[1] in self.own

    def store(self, step):
        place = self.value(step.place) + "." + step.field
        self.memory[re.sub(r"record \w+ of ", "", place)] = value = self.value(step.value)
        if not self.is_own(place):
            self.emit(step, f"{place} = {value}")

    def report(self, step):
        inner = "" if len(self.frames) == 1 else self.frames[-1].name + " "
        self.emit(step, re.sub("^report ", "report " + inner, self.value(step.text)))

    def refuse(self, step):
        about = self.value(step.value)
        allowed = self.allowed(about)
        if allowed == {0}:
            self.end(step, step.then, about)
        elif 0 in allowed:
            if self.trail is not None:
                raise Both
            self.emit(step, f"null {about}", fails=[("", self.fail(step.then, about, {0}))])
            self.facts[about] = allowed - {0}

    def call(self, step):
        arguments = [self.value(argument) for argument in step.arguments]
        if step.name in FUNCTIONS:
            self.enter(FUNCTIONS[step.name], arguments, step, self.frames[-1].key + (step.n,))
            return
        if not step.name.startswith(("KEL_Mem", "KEL_Str")) or step.branches or not self.is_own(arguments[0]):
            self.emit(step, step.name, arguments, step.target)
        if step.name == "tc_malloc":
            self.own.add(step.target)
        if step.name == "KEL_MemSet":
            self.memory[re.sub(r"record \w+ of ", "", arguments[0]) + ".family"] = "0"
        result = step.target or step.name + "()"
        self.forget(result, universe())
        if step.target:
            self.frames[-1].values[step.target] = step.target
        if self.trail is None:
            self.origins[result] = self.rows and self.rows[-1]
            self.descriptor = (step.target if step.name == "socket" else
                               None if step.name == "close" else self.descriptor)
        self.follow(step, result)

    def result(self, step):
        value = self.value(step.value)
        if len(self.frames) == 1:
            known = self.facts.get(value, {}) if self.trail is not None else {}
            self.emit(step, f"result {value if len(known) != 1 else min(known)}")
        site = self.frames.pop().site
        if self.trail is not None and len(self.frames) < self.depth:
            self.depth, self.kept = len(self.frames), len(self.trail)  # so far it was the function that failed
        if site:
            self.last = f" with {site.target} {value}" if site.target and number(value) is not None else ""
            if site.target:
                self.frames[-1].values[site.target] = value
            self.follow(site, value)


def shown(name, arguments):
    return name if arguments is None else f"{name}({', '.join(arguments)})"


def runs_of(name):
    runs, todo = [], [[]]
    while todo:
        given = todo.pop()
        runs.append(Run(name, given))
        todo += [runs[-1].taken[:i] + [False] for i in range(len(given), len(runs[-1].taken))]
    return runs


# ---- All ways through a function as one list of rows ----------------------------------------------------------------

def ways(found):
    return {id(run) for _, run in found}


def rows_of(name):
    """The rows of all runs in their order, each with the condition on which it is reached."""
    runs, merged, rows = runs_of(name), {}, []
    for run in runs:
        for row in run.rows:
            what = (row.key, row.name, row.target, tuple(row.fails), row.arguments is None)
            merged.setdefault(what, []).append((row, run))
    whole = []
    for (_, *what), found in sorted(merged.items(), key=lambda item: item[0][0]):
        is_more = what[2] or found[0][0].loops
        if whole and whole[-1][0] == what and is_more and not ways(found) & ways(whole[-1][1]):
            whole[-1][1].extend(found)  # the same step of another family
        else:
            whole.append((what, found))
    for _, found in whole:
        row, *_ = which = [row for row, run in found]
        others = [run for run in runs if run.rows[-1].key >= row.key and id(run) not in ways(found)]
        step = shown(row.name, row.arguments and [either(*all) for all in zip(*(one.arguments for one in which))])
        step += f" -> {row.target}" if row.target and row.arguments is not None else ""
        loops = either(*(loop.removeprefix("i below ") for one in which for loop in one.loops))
        groups = []
        for _, run in found:
            for group in groups:
                if condition(group + [run], others) is not None:
                    group.append(run)
                    break
            else:
                groups.append([run])
        for group in groups:
            rest = others + [run for _, run in found if all(run is not one for one in group)]
            reached = [words for words in (condition(group, rest), condition(group, others)) if words is not None][0]
            rows.append(Node(step=step, is_call=row.arguments is not None, fails=row.fails, note=row.note,
                             reached=reached, loop=loops and f"for each i below {loops}"))
    return rows


def either(*texts):
    """What differs between the ways alone stands side by side: literals behind what the caller gives."""
    words = [re.findall(r'".*?"|\w+|\W', text) for text in texts]
    if len(set(map(len, words))) == 1 and len(words[0]) > 1:
        return "".join(either(*which) for which in zip(*words))
    literal = re.compile('["0-9]').match
    return " or ".join(sorted(dict.fromkeys(texts), key=lambda text: literal(text) and (1, text) or (0, "")))


def condition(these, others):
    """What is true of these runs and of no other; None when more than one thing is."""
    def box(run, key):
        return run.facts[key] if key in run.decided else universe() | {0, 1}

    def union(runs, key):
        return set().union(*(box(run, key) for run in runs))

    def admits(keys):
        return any(all(union(these, key) & box(run, key) for key in keys) for run in others)

    keys = list(dict.fromkeys(key for run in these for key in run.decided))
    if admits(keys):
        return None
    for key in list(keys):
        keys = keys if admits([other for other in keys if other != key]) else [o for o in keys if o != key]
    words = []
    for key in keys:
        names = {x: name for run in these + others for x, name in run.tested.get(key, {}).items()}
        holds = union(these, key)
        if " is " in key:
            words.append(key if 1 in holds else key.replace(" is ", " is not "))
        elif holds <= set(names):
            words.append(f"{key} is " + " or ".join(names[x] for x in sorted(holds)))
        else:
            words.append(f"{key} is not " + " or ".join(names[x] for x in sorted(set(names) - holds)))
    return " and ".join(words)
