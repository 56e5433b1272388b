"""The documentation site: pages in Markdown, the gallery made of its scripts, the reference from docstrings."""
import re
from pathlib import Path

root = Path(__file__).resolve().parents[2]
project = "tx"
version = release = re.search(r'#define TX_VERSION "([0-9.]+)"', (root / "src/tx.h").read_text())[1]
extensions = ["myst_parser", "sphinx.ext.autodoc", "sphinx_gallery.gen_gallery", "breathe"]
breathe_projects = {"tx": str(root / "build/site/doxygen/xml")}
breathe_default_project = "tx"
breathe_domain_by_extension = {"h": "c", "hpp": "cpp"}
nitpicky = True
nitpick_ignore_regex = [  # what these pages do not describe: other libraries, and what is ours alone
    ("py:class", r"(np|numpy|collections|concurrent|os|_core)\..*"), ("c:identifier", "FILE"), ("cpp:identifier", "tx|(std|trajex).*"),
]
html_theme = "alabaster"
html_theme_options = {"description": "Equilibria, cycles and bifurcations", "page_width": "1160px", "show_powered_by": False}
html_static_path = ["static"]
html_css_files = ["narrow.css"]
html_show_copyright = False
html_copy_source = False
autodoc_typehints = "description"
autodoc_member_order = "bysource"


def pictures(configuration, script):
    """Sizes at which labels can be read on a telephone, too."""
    import matplotlib
    matplotlib.rcParams.update({"figure.figsize": (5.2, 3.9), "font.size": 11, "savefig.dpi": 200})


sphinx_gallery_conf = {
    "reset_modules": ("matplotlib", pictures),
    "examples_dirs": str(root / "gallery"), "gallery_dirs": "gallery", "filename_pattern": r"\.py$",
    "abort_on_example_error": True, "download_all_examples": False, "show_memory": False,
}
