# SPDX-License-Identifier: MIT
"""The directive `installed-headers`: what a host may include, by folder, with the types and functions of each header and what it
says of the first of them. It reads the headers that CMake installs, so none is left out."""
from __future__ import annotations

import pathlib
import re
import sys
from collections.abc import Iterator

from docutils import nodes
from docutils.parsers.rst import Directive
from sphinx.application import Sphinx

ROOT = pathlib.Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "tests"))
from floors import installed  # noqa: E402

API = r"(?:ZORVAN_\w*API )?"
TYPE = re.compile(rf"^(?:class|struct|enum class) {API}(\w+)(?=[ :{{]|$)(?!;)", re.MULTILINE)
FUNCTION = re.compile(rf"^(?:\[\[nodiscard\]\] )?{API}(?:inline |constexpr )*\w[\w:<>,&* ]*? [&*]?(\w+)\(", re.MULTILINE)
NO_NAMES = {"operator", "alignas", "bool", "requires", "static_assert", "std", "defined"}
COMMENT = re.compile(r"((?:^ *///.*\n)+)(?:^template.*\n)?", re.MULTILINE)


def names(text: str) -> list[str]:
    found = TYPE.findall(text) + FUNCTION.findall(text)
    return list(dict.fromkeys(name for name in found if name not in NO_NAMES))


def first_sentence(text: str) -> str:
    """Of the first comment that documents something."""
    found = COMMENT.search(text)
    words = re.sub(r"^ *///<? ?", "", found[1], flags=re.MULTILINE).split("\n\n")[0] if found else ""
    return re.split(r"(?<=\.)\s+(?=[A-Z@])|\s+@", " ".join(words.split()))[0]


class InstalledHeaders(Directive):
    def run(self) -> list[nodes.Node]:
        return list(self.folders())

    def folders(self) -> Iterator[nodes.Node]:
        headers: dict[str, list[str]] = {}
        for header in sorted(installed(ROOT)):
            headers.setdefault(header.split("/")[1], []).append(header)
        for folder, files in headers.items():
            section = nodes.section(ids=[f"headers-{folder}"])
            section += nodes.title(text=folder)
            entries = nodes.definition_list()
            for file in files:
                text = (ROOT / file).read_text()
                entries += nodes.definition_list_item("", nodes.term("", "", nodes.literal(text=file)), nodes.definition(
                    "", nodes.paragraph("", first_sentence(text)), nodes.paragraph("", "", nodes.emphasis(text=", ".join(names(text))))))
            section += entries
            yield section


def setup(app: Sphinx) -> dict[str, bool]:
    app.add_directive("installed-headers", InstalledHeaders)
    return {"parallel_read_safe": True}
