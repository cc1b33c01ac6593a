#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""HTML of summaries that tarnstitch has written, NAME.summary.json beside the outputs of the sweep.

usage: pages.py report SUMMARY         what became of one sweep: its panorama, its frames
       pages.py index SUMMARY...       all of them, with thumbnails
"""
import collections
import csv
import html
import json
import os
import sys
import urllib.parse

ENDING = ".summary.json"
STYLE = """
body { font: 16px/1.4 sans-serif; margin: 2em; color: #222 }
img { max-width: 100%; background: #000 }
table { border-collapse: collapse } td, th { text-align: left; padding: .15em 1em .15em 0 }
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
        return os.path.basename(path)[: -len(ENDING)], json.load(file)


def row(name, value):
    return f"<tr><th>{text(name)}</th><td>{value}</td></tr>\n"


def frames_by_name(summary):
    """How many frames were answered with each advice, and how many were taken, as the table of frames has them."""
    counts, taken = collections.Counter(), 0
    for output in summary["outputs"]:
        if output["what"] == "frames":
            with open(output["file"], encoding="utf-8", newline="") as file:
                for frame in csv.DictReader(file):
                    counts[frame["name"]] += 1
                    taken += frame["taken"] == "1"
    return counts, taken


def report(path):
    name, summary = read(path)
    counts, taken = frames_by_name(summary)
    body = ""
    if summary["panorama"]:
        picture = link(summary["panorama"]["file"])
        body += f'<p><a href="{picture}"><img src="{picture}" alt="{text(name)}"></a></p>\n'
    body += "<table>\n" + row("outcome", text(summary["outcome"]))
    for said in filter(None, [summary["error"], *summary["notes"]]):
        body += row("said", text(said))
    body += row("frames", f"{sum(counts.values())}, {taken} taken")
    for advice, count in counts.most_common():
        body += row("of these " + advice.replace("_", " "), count)
    body += row("key frames", summary["key_frames"])
    body += row("seconds", summary["seconds"])
    for output in summary["outputs"]:
        body += row(output["what"], f'<a href="{link(output["file"])}">{text(output["file"])}</a>')
    body += row("summary", f'<a href="{link(path)}">{text(os.path.basename(path))}</a>')
    return page(name, body + '</table>\n<p><a href="index.html">all sweeps</a></p>\n')


def index(paths):
    body, done = "", 0
    for name, summary in map(read, paths):
        done += summary["outcome"] == "done"
        thumbnail = summary["preview"] or summary["panorama"]
        body += "<figure>\n" + f'<a href="{link(name)}.html">'
        body += f'<img src="{link(thumbnail["file"])}" alt="">' if thumbnail else "no panorama"
        said = "" if summary["outcome"] == "done" else f' <span class="failed">{text(summary["error"])}</span>'
        body += f"</a>\n<figcaption>{text(name)}{said}</figcaption>\n</figure>\n"
    return page(f"{done} of {len(paths)} sweeps", body)


if __name__ == "__main__":
    if len(sys.argv) == 3 and sys.argv[1] == "report":
        sys.stdout.write(report(sys.argv[2]))
    elif len(sys.argv) > 1 and sys.argv[1] == "index":
        sys.stdout.write(index(sys.argv[2:]))
    else:
        sys.exit(__doc__)
