"""Docstrings of the Python bindings, from the comments of the C++ headers.

Reads the headers and writes a C++ header holding one table: "Class.member" (or a free
function's name, or "Class" for the class itself) to the comment block standing right above
the declaration, or to the comment behind it on the same line. The bindings look every
docstring up there, so the Python help says what the C++ documentation says.

    header_docs.py OUTPUT HEADER...
"""

from __future__ import annotations

import re
import sys
from pathlib import Path

SCOPE = re.compile(r"^\s*(?:class|struct)\s+(\w+)\b[^;]*\{\s*$")
FUNCTION = re.compile(r"(~?\w+)\s*\(")
FIELD = re.compile(r"^\s*[\w:<>, *&]+?\s+([\w\[\]0-9, ]+?)\s*(?:=[^;]*|\{[^;]*\})?;")
SKIP = {"if", "for", "while", "return", "switch", "static_assert", "sizeof", "operator", "friend", "using"}


def declared_names(line: str) -> list[str]:
    code = line.split("//")[0].strip()
    if not code or code.startswith(("#", "}", "public:", "private:", "protected:", "namespace", "template")):
        return []
    if "(" in code:
        m = FUNCTION.search(code)
        if m and m.group(1) not in SKIP and "operator" not in code.split("(")[0]:
            return [m.group(1)]
        return []
    m = FIELD.match(code)
    if not m:
        return []
    return [re.sub(r"\[.*", "", n).strip() for n in m.group(1).split(",") if n.strip()]


def file_comment(lines: list[str]) -> str:
    """The comment that opens a header: it describes the class the header is named after."""
    head: list[str] = []
    for line in lines:
        stripped = line.strip()
        if not stripped.startswith("//"):
            break
        head.append(stripped[2:].strip())
    return " ".join(head)


def scan(path: Path, docs: dict[str, str]) -> None:
    scopes: list[tuple[str, int]] = []
    depth = 0
    block: list[str] = []
    lines = path.read_text().splitlines()
    # One header per class, named after it: its opening comment is the class's docstring
    # unless a comment stands right above the class itself.
    opening = file_comment(lines)
    # A comment block documents the run of declarations right below it, up to a blank line
    # ("drawVertices, drawWireframe and drawSurface: ..." above three declarations).
    run = ""
    for raw in lines:
        line = raw.rstrip()
        stripped = line.strip()
        if stripped.startswith("//"):
            block.append(stripped[2:].strip())
            continue
        if not stripped:
            run = ""
        scope = SCOPE.match(line)
        owner = scopes[-1][0] if scopes else ""
        if scope:
            name = scope.group(1)
            key = f"{owner}.{name}" if owner else name
            if block:
                docs.setdefault(key, " ".join(block))
            run = ""
        else:
            names = declared_names(line) if depth - (1 if scopes else 0) <= (scopes[-1][1] if scopes else 0) else []
            trailing = line.split("//", 1)[1].strip() if "//" in line else ""
            function = "(" in line.split("//")[0]
            own = " ".join(block)
            # A run carries over functions only: a comment above a group of fields speaks
            # of the group, not of each field.
            text = trailing or own or (run if function else "")
            run = (own or run) if function and "{" not in line else ""
            if text:
                for n in names:
                    docs.setdefault(f"{owner}.{n}" if owner else n, text)
        block = []
        if stripped.startswith("namespace") or (stripped.startswith("}") and "namespace" in stripped):
            continue  # a namespace's braces do not nest declarations
        depth += line.count("{") - line.count("}")
        if scope:
            scopes.append((scope.group(1), depth))
        while scopes and depth < scopes[-1][1]:
            scopes.pop()
    if opening:
        docs.setdefault(path.stem, opening)


# The headers speak C++; the docstrings speak Python.
PYTHON_WORDS = [
    (re.compile(r"\bnull\b"), "None"),
    (re.compile(r"\bfalse\b"), "False"),
    (re.compile(r"\btrue\b"), "True"),
    (re.compile(r"\bpointers\b"), "references"),
    (re.compile(r"\bpointer\b"), "reference"),
]


def python_words(text: str) -> str:
    for pattern, word in PYTHON_WORDS:
        text = pattern.sub(word, text)
    return text


def main(argv: list[str]) -> int:
    docs: dict[str, str] = {}
    for header in argv[2:]:
        scan(Path(header), docs)
    out = ["// Generated from the headers' comments by python/tools/header_docs.py.", "#pragma once", ""]
    out.append("static const struct { const char* key; const char* text; } kHeaderDocs[] = {")
    for key in sorted(docs):
        text = python_words(docs[key]).replace("\\", "\\\\").replace('"', '\\"')
        out.append(f'    {{"{key}", "{text}"}},')
    out.append("};")
    # Its folder may not exist yet: Ninja makes an output's folder, Make does not.
    target = Path(argv[1])
    target.parent.mkdir(parents=True, exist_ok=True)
    target.write_text("\n".join(out) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
