# SPDX-License-Identifier: MIT
"""The manual: see docs/CMakeLists.txt, which says where the module and the XML of Doxygen are."""
import os
import pathlib
import re
import sys

FOLDER = pathlib.Path(__file__).parent
sys.path.insert(0, str(FOLDER))

project = "Zorvan"
author = "The Zorvan authors"
extensions = ["myst_parser", "sphinx.ext.autodoc", "breathe", "headers"]
exclude_patterns = ["CMakeLists.txt"]
smartquotes = False
html_theme = "alabaster"
html_show_copyright = False
breathe_projects = {"zorvan": os.environ["ZORVAN_DOXYGEN_XML"]}
breathe_default_project = "zorvan"
breathe_default_members = ("members", "undoc-members")
autodoc_typehints = "none"  # the signatures of the compiled part are in its docstrings
myst_heading_anchors = 3
suppress_warnings = ["myst.header"]
primary_domain = "cpp"

import zorvan  # noqa: E402

missing = [name for name in zorvan.__all__ if not re.search(rf":: {name}$", (FOLDER / "python.rst").read_text(), re.MULTILINE)]
if missing != ["__version__"]:
    raise ValueError(f"python.rst leaves out {missing}")
