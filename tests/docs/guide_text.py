"""A guide's console blocks: which commands they show with which output, and which parts of an output may vary."""
import re

# "controller# mke2fs ..." is a command on that host; lines that begin with "> " continue it; what follows is output.
PROMPT = re.compile(r"^(controller|client)# (.*)$")
CONTINUED = "> "

# The kinds of parts that differ from run to run. Nothing else may, but for the blanks around them, since columns move.
# A group in a pattern is kept. How many requests were answered depends on how many datagrams had to be sent twice.
VARYING = [
    ("id", r"\b[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\b|\b[0-9a-f]{32}\b"),
    ("id", r"(?<=messageID )[0-9A-F ]+"),
    ("date", r"\b\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\b|\b\d\d/\d\d\|\d\d:\d\d:\d\d\b"),
    ("date", r"\b(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun) \w{3} [ \d]\d \d\d:\d\d:\d\d \d{4}\b"),
    ("date", r"(?<=modified at )\d+"),
    ("duration", r"(?<![\d.])\d+(?:\.\d+)? ?(?:ns|us|ms|s)(?![\w/])"),
    ("process", r"(?<=process )\d+|(?<=\[)\d+-\d+(?=\])|^\d+(?= (?:corvaned|OSL_\w+|parseSmbConfFile|FTX\d+\w)\b)"),
    ("machine", r"(?<=Shm init id )\d+|(?<= ver ).*(?= Max Volumes)"),
    ("version", r"(?<=Log version:)\S*"),
    ("size of a plug-in", r"(?<=\.so, )\d+(?= bytes)"),
    ("number of requests", r"^(other|Get\w+|SetSize|Close|  \S.* \(\d+\)) +\d+(?= |$)"),
    ("version", r"(?<=e2fsck )\d[\w.]* \(\S+\)"),
]


class Step:
    """One command of the guide: where it runs, its text and output, and the guide's lines that hold the output."""

    def __init__(self, host, command, line):
        self.host, self.command, self.line = host, command, line
        self.output = []
        self.block = 0

    def end(self):
        """The number of the line behind its output, counted as `line` is: from 0."""
        return self.line + len(self.command.split("\n")) + len(self.output)


def read_steps(lines):
    """The steps of all ```console blocks, in order."""
    steps, block, inside = [], 0, False
    for number, line in enumerate(lines):
        if not inside:
            inside = line == "```console"
            block += inside
        elif line == "```":
            inside = False
        elif found := PROMPT.match(line):
            steps.append(Step(found[1], found[2], number))
            steps[-1].block = block
        elif not steps or steps[-1].block != block:
            raise SystemExit(f"line {number + 1}: a console block begins with a prompt")
        elif line.startswith(CONTINUED) and not steps[-1].output:
            steps[-1].command += "\n" + line.removeprefix(CONTINUED)
        else:
            steps[-1].output.append(line)
    return steps


def normalise(line):
    """The line with its varying parts named instead of written, and blanks no wider than one where there are some."""
    plain = line.rstrip()
    for kind, pattern in VARYING:
        plain = re.sub(pattern, lambda found: f"{found[1] if found.groups() else ''} <{kind}>", plain)
    return re.sub(r" +", " ", plain) if plain != line.rstrip() else plain


def same(shown, printed):
    return [normalise(line) for line in shown] == [normalise(line) for line in printed]
