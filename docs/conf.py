# SPDX-License-Identifier: MIT
"""The manual: see docs/CMakeLists.txt, which says where the module and the XML of Doxygen are."""
import os

project = "Zorvan"
author = "The Zorvan authors"
extensions = ["myst_parser", "sphinx.ext.autodoc", "breathe"]
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
