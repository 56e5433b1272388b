"""Looks for links into nothing: in the pages of a site, and in documents in Markdown beside the sources.

    check_links.py SITE DOCUMENT.md ...
"""
import re
import sys
from functools import cache
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit


class Page(HTMLParser):
    """What a page links to and the places in it that can be linked to."""

    def __init__(self, text: str):
        super().__init__()
        self.links, self.places = [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src") and value:
                self.links.append(value)
            if name == "id" or (tag == "a" and name == "name"):
                self.places.add(value)


class Document:
    """The same of a document in Markdown; headings are places under the names that forges give them."""

    def __init__(self, text: str):
        text = re.sub(r"^```.*?^```", "", text, flags=re.MULTILINE | re.DOTALL)
        self.links = re.findall(r"\]\(([^)\s]+)\)", text)
        headings = re.findall(r"^#+ +(.*)$", text, re.MULTILINE)
        self.places = {re.sub(r"[^\w -]", "", h.lower()).replace(" ", "-") for h in headings}


@cache
def read(path: Path) -> Page | Document:
    return (Document if path.suffix == ".md" else Page)(path.read_text())


def missing(path: Path, link: str) -> bool:
    parts = urlsplit(link)
    if parts.scheme or parts.netloc:
        return False
    target = path.parent / unquote(parts.path) if parts.path else path
    if not target.exists():
        return True
    readable = target.suffix in (".html", ".md")
    return bool(parts.fragment) and readable and unquote(parts.fragment) not in read(target).places


def main(site: str, *documents: str) -> int:
    pages = [*sorted(Path(site).rglob("*.html")), *map(Path, documents)]
    links = [(page, link) for page in pages for link in read(page).links]
    broken = [f"{page}: {link}" for page, link in links if missing(page, link)]
    print(*broken, f"{len(links)} links on {len(pages)} pages, {len(broken)} broken", sep="\n")
    return len(broken) > 0 or not links


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
