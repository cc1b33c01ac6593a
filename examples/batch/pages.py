#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""A page of summaries that tarnstitch has written, NAME.summary.json beside the outputs of the sweep: all sweeps, with
thumbnails that lead to their reports. In NAME, %7B and %7D are braces.

usage: pages.py SUMMARY...
"""
import html
import json
import os
import sys
import urllib.parse

ENDING = ".summary.json"
STYLE = """
body { font: 16px/1.4 sans-serif; margin: 2em; color: #222 }
img { max-width: 100%; background: #000 }
figure { display: inline-block; width: 20em; margin: 0 1em 1.5em 0; vertical-align: top }
figure img { height: 6em; object-fit: cover } .failed { color: #a00 }
"""


def text(value):
    return html.escape(str(value))


def link(file):
    """The address of a file that lies beside the page."""
    return html.escape(urllib.parse.quote(os.path.basename(file)))


def page(title, body):
    return (f'<!DOCTYPE html>\n<html lang="en">\n<meta charset="utf-8">\n<title>{text(title)}</title>\n'
            f"<style>{STYLE}</style>\n<h1>{text(title)}</h1>\n{body}</html>\n")


def read(path):
    with open(path, encoding="utf-8") as file:
        name = os.path.basename(path)[: -len(ENDING)].replace("%7B", "{").replace("%7D", "}")
        return name, json.load(file)


def index(paths):
    body, done = "", 0
    for path in paths:
        name, summary = read(path)
        done += summary["outcome"] == "done"
        thumbnail = summary["preview"] or summary["panorama"]
        # A sweep that could not even be read has no report, and its summary says all.
        target = link(summary.get("report") or path)
        body += "<figure>\n" + f'<a href="{target}">'
        body += f'<img src="{link(thumbnail["file"])}" alt="">' if thumbnail else "no panorama"
        said = "" if summary["outcome"] == "done" else f' <span class="failed">{text(summary["error"])}</span>'
        body += f"</a>\n<figcaption>{text(name)}{said}</figcaption>\n</figure>\n"
    return page(f"{done} of {len(paths)} sweeps", body)


if __name__ == "__main__":
    if len(sys.argv) > 1:
        sys.stdout.write(index(sys.argv[1:]))
    else:
        sys.exit(__doc__)
