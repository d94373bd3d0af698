"""Reads the exported header: its declarations with the comment before each."""
import pathlib
import re

DECLARATION = re.compile(
    r"(?P<comment>/\*\*(?:(?!\*/).)*\*/)?\s*"
    r"(?P<result>(?:const\s+)?(?:struct\s+)?\w+[\s*]+)(?P<name>\w+)\((?P<parameters>(?:[^()]|\([^()]*\))*)\)\s*"
    r"(?:TAV_\w+(?:\([^)]*\))?)?;", re.S)
DATA = re.compile(r"^extern\s+[^;{(]*?\b(?P<name>\w+)\s*(?:\[\w*\])?;", re.M)


def split_parameters(text):
    """The names in a parameter list; "..." for what follows the last one."""
    if text.strip() in ("", "void"):
        return []
    parts, depth = [""], 0
    for character in text:
        depth += {"(": 1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            parts.append("")
        else:
            parts[-1] += character
    names = []
    for part in (part.strip() for part in parts):
        pointer = re.search(r"\(\s*\*\s*(\w+)\s*\)", part)
        named = pointer or re.search(r"(\w+)\s*(?:\[\w*\])?$", part)
        names.append("..." if part == "..." else named.group(1))
    return names


class Header:
    def __init__(self, path):
        self.text = pathlib.Path(path).read_text(encoding="utf-8")
        start = self.text.index('extern "C" {')
        body = self.text[start:]
        plain = re.sub(r"/\*(?!\*).*?\*/", lambda m: " " * len(m.group()), body, flags=re.S)
        plain = re.sub(r"^[ \t]*#.*?(?<!\\)$", lambda m: " " * len(m.group()), plain, flags=re.M | re.S)
        self.functions = {}
        for match in DECLARATION.finditer(plain):
            if match.group("result").split()[0] not in ("typedef", "return"):
                self.functions[match.group("name")] = (split_parameters(match.group("parameters")),
                                                       match.group("comment") or "")
        self.data = {match.group("name") for match in DATA.finditer(plain)}


def export_list(path):
    lines = (line.strip() for line in pathlib.Path(path).read_text().splitlines())
    return [line for line in lines if line and not line.startswith("#")]
