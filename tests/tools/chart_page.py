#!/usr/bin/env python3
"""Looks at a chart page as a file, as the browser leaves it, and as a picture; ends with 1 and words when it is wrong.

usage: chart_page.py file PAGE
       chart_page.py dom DOM ID NAME=VALUE...
       chart_page.py data PAGE EXPRESSION
       chart_page.py picture PNG light|dark
"""
import base64
import collections
import hashlib
import html.parser
import json
import re
import struct
import sys
import zlib


class Page(html.parser.HTMLParser):
    """The elements of a page and the contents of its scripts and styles."""

    def __init__(self, path):
        super().__init__()
        self.elements = []
        self.contents = collections.defaultdict(list)  # by tag: attributes and text
        self.within = None
        self.text = open(path, encoding="utf-8", newline="").read()
        self.feed(self.text)

    def handle_starttag(self, tag, attributes):
        self.elements.append((tag, dict(attributes)))
        if tag in ("script", "style"):
            self.within = [dict(attributes), ""]
            self.contents[tag].append(self.within)

    def handle_endtag(self, tag):
        self.within = None

    def handle_data(self, data):
        if self.within:
            self.within[1] += data

    def find(self, tag, **wanted):
        return [has for name, has in self.elements
                if name == tag and all(has.get(key) == value for key, value in wanted.items())]


def check_file(path):
    page = Page(path)
    policy = page.find("meta", **{"http-equiv": "Content-Security-Policy"})[0]["content"]
    assert policy.startswith("default-src 'none';") and "unsafe" not in policy, policy
    scripts = page.find("script")
    assert len(scripts) == 3, scripts  # a name has not become a fourth one
    for attributes, content in page.contents["script"] + page.contents["style"]:
        if attributes.get("type") != "application/json":
            digest = base64.b64encode(hashlib.sha256(content.encode()).digest()).decode()
            assert f"'sha256-{digest}'" in policy, "the policy does not allow what is on the page"
    for tag, attributes in page.elements:
        assert tag not in ("link", "img", "iframe", "object", "embed", "base", "form"), tag
        for name, value in attributes.items():
            assert name not in ("src", "srcset", "style") and not name.startswith("on"), (tag, name)
            assert name != "href" or value.startswith("#"), (tag, value)
    # What names an address is the library's own first line, a comment.
    addresses = re.findall(r"https?://\S+|url\(|@import", page.text)
    assert addresses == ["https://github.com/leeoniya/uPlot"], addresses
    assert page.find("html", lang="en") and page.find("h1") and len(page.find("h2")) >= 1
    assert "{{" not in page.text.split("<script", 1)[0], "a place was left open"


def check_dom(path, element, *expected):
    found = Page(path).find("div", id=element)[0]
    for pair in expected:
        name, value = pair.split("=")
        assert found.get(f"data-{name}") == value, f"{element}: {name} is {found.get('data-' + name)}, not {value}"


def check_data(path, expression):
    page = Page(path)
    data = next(json.loads(content) for has, content in page.contents["script"] if has.get("id") == "chart-data")
    assert eval(expression, {"data": data, "panel": data["panels"][0], "page": page}), expression


def read_pixels(path):
    """The picture's pixels, counted by colour, and the first one. Every PNG filter undone, no library needed."""
    content = open(path, "rb").read()
    position, packed = 8, b""
    while position < len(content):
        length, kind = struct.unpack(">I4s", content[position:position + 8])
        chunk = content[position + 8:position + 8 + length]
        if kind == b"IHDR":
            width, _, _, colours = struct.unpack(">IIBB", chunk[:10])
        packed += chunk if kind == b"IDAT" else b""
        position += length + 12
    step = {2: 3, 6: 4}[colours]
    raw, above, counts = zlib.decompress(packed), bytes(width * step), collections.Counter()
    for start in range(0, len(raw), width * step + 1):
        row = bytearray(raw[start + 1:start + 1 + width * step])
        for i in range(len(row) if raw[start] else 0):
            left, up, corner = (row[i - step], above[i], above[i - step]) if i >= step else (0, above[i], 0)
            nearest = min((left, up, corner), key=lambda value: abs(left + up - corner - value))
            row[i] = (row[i] + (0, left, up, (left + up) // 2, nearest)[raw[start]]) & 255
        above = row
        counts.update(bytes(row[i:i + 3]) for i in range(0, len(row), step))
    return counts


def check_picture(path, scheme):
    background, series, alert = {"light": ("ffffff", "0a5fb4", "b71c1c"), "dark": ("14181d", "6cb6ff", "ff8a80")}[scheme]
    counts = read_pixels(path)
    assert counts.most_common(1)[0][0].hex() == background, "another background"
    assert counts[bytes.fromhex(series)] > 300, "the first series is not to be seen"
    assert counts[bytes.fromhex(alert)] > 300, "neither threshold nor alerts are to be seen"


if __name__ == "__main__":
    {"file": check_file, "dom": check_dom, "data": check_data, "picture": check_picture}[sys.argv[1]](*sys.argv[2:])
