"""The numbered operator messages that the product has: those of the catalogue's source, and the code's own."""
import dataclasses
import re

FOLDERS = ("osl", "codeset", "nls", "mdcmain", "lan", "fsmdc", "plugins", "client")
ESCAPES = {"n": "\n", "t": "\t", '"': '"', "\\": "\\"}
LITERALS = re.compile(r'"FTX\d{4}[IWE](?:[^"\\\n]|\\.)*"(?:\s*"(?:[^"\\\n]|\\.)*")*')


@dataclasses.dataclass(frozen=True)
class Message:
    text: str
    file: str = ""  # of a literal message: the source that logs it
    number: int = 0  # of a catalogue's message: its number in set 2

    @property
    def identifier(self):
        return self.text[:8]


def unescape(text):
    return re.sub(r"\\(.)", lambda found: ESCAPES.get(found[1], found[1]), text)


def catalogue_messages(source):
    """The messages of C.msg: lines of a number and a quoted text, which a backslash at the end continues."""
    joined = (source / "nls/messages/C.msg").read_text().replace("\\\n", "")
    for number, text in re.findall(r'(?m)^(\d+) "(.*)"$', joined):
        yield Message(unescape(text), number=int(number))


def sources(source):
    for folder in FOLDERS:
        for file in sorted((source / folder).rglob("*")):
            if file.suffix in (".c", ".cpp", ".h", ".hpp"):
                yield str(file.relative_to(source)), file.read_text()


def literal_messages(source):
    """Texts of the code that begin with a message's identifier and go on."""
    for name, code in sources(source):
        for literal in LITERALS.findall(code):
            yield Message(unescape("".join(re.findall(r'"((?:[^"\\\n]|\\.)*)"', literal))), file=name)


def loggers(source):
    """By number: the sources that log this message of the catalogue, by the constants that they give log_message."""
    by_number = {}
    for name, code in sources(source):
        for constant in re.findall(r"\blog_message\((?:corvane::)?(k\w+)", code):
            for number in re.findall(rf"\b{constant} = (\d+);", code):
                by_number.setdefault(int(number), set()).add(name)
    return by_number


def all_messages(source):
    """By identifier: its messages, each text once."""
    by_identifier = {}
    for message in (*catalogue_messages(source), *literal_messages(source)):
        same = by_identifier.setdefault(message.identifier, [])
        if message.text not in (other.text for other in same):
            same.append(message)
    return by_identifier


def conversions(text):
    """The printf conversions of a text, in order."""
    return re.findall(r"%(?:l{0,2})[a-z]", text.replace("%%", ""))
