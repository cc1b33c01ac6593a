# SPDX-License-Identifier: Apache-2.0
"""The table of success for people: in Markdown, and with thumbnails side by side."""

import html
import json
import statistics

import cv2
import numpy as np

THUMBNAIL = (300, 110)  # at most
HEADINGS = {
    "live": "live panorama",
    "finished": "finished",
    "uncut": "finished, not cut",
    "PANORAMA": "OpenCV PANORAMA",
    "SCANS": "OpenCV SCANS",
    "Hugin": "Hugin",
}


def fitted(picture, width, height):
    scale = min(width / picture.shape[1], height / picture.shape[0], 1.0)
    size = (max(1, round(picture.shape[1] * scale)), max(1, round(picture.shape[0] * scale)))
    return cv2.resize(picture, size, interpolation=cv2.INTER_AREA)


def write_thumbnail(pictures, path):
    """The pictures side by side in one."""
    width = THUMBNAIL[0] // len(pictures) - 2
    small = [fitted(picture, width, THUMBNAIL[1]) for picture in pictures]
    gap = np.full((small[0].shape[0], 3, 3), 255, np.uint8)
    parts = [small[0]]
    for picture in small[1:]:
        parts += [gap, picture]
    cv2.imwrite(str(path), np.hstack(parts), [cv2.IMWRITE_JPEG_QUALITY, 80])


def answers(row):
    """What the live path said of the frames, in a few words."""
    live = row["live"]
    if not live:
        return "–"
    hints = [f"{count} {name.replace('_', ' ')}" for name, count in live["by_code"].items() if name != "normal"]
    return f"{live['taken']} of {live['frames']} taken" + (f"; {', '.join(hints)}" if hints else "")


def cell(row, name):
    one = row["by"].get(name)
    if one is None:
        return "not run"
    word = one["word"] + (" (time)" if one["word"] == "none" and one["remark"].endswith("time") else "")
    return f"**{word}**" if word == "whole" else word


def wholes_of(rows, name, belongs):
    words = [row["by"][name]["word"] for row in rows if belongs(row) and name in row["by"]]
    return f"{words.count('whole')} of {len(words)}" if words else "–"


def as_markdown(rows, by):
    names = [name for name in by if any(name in row["by"] for row in rows)]
    lines = ["| sweep | kind | frames | live answers | " + " | ".join(HEADINGS[name] for name in names) + " |"]
    lines.append("| --- | --- | --- | --- |" + " --- |" * len(names))
    for row in rows:
        size = "x".join(str(side) for side in row["size"])
        cells = " | ".join(cell(row, name) for name in names)
        lines.append(f"| {row['sweep']} | {row['kind']} | {row['frames']} of {size} | {answers(row)} | {cells} |")
    of = {name: sum(name in row["by"] for row in rows) for name in names}
    count = lambda name, test: sum(test(row["by"][name]) for row in rows if name in row["by"])
    whole = " | ".join(f"**{count(name, lambda one: one['word'] == 'whole')} of {of[name]}**" for name in names)
    lines.append(f"| **whole** | | | | {whole} |")
    parts = {
        "filmed, stills too": lambda row: not row["kind"].startswith("rendered"),
        "rendered": lambda row: row["kind"].startswith("rendered"),
    }
    if "Hugin" in names and of["Hugin"] < len(rows):
        parts["of those that Hugin was run on"] = lambda row: "Hugin" in row["by"]
    for label, belongs in parts.items():
        lines.append(f"| whole, {label} | | | | " + " | ".join(wholes_of(rows, name, belongs) for name in names) + " |")
    every = " | ".join(f"{count(name, lambda one: one['shown'] == one['of'])} of {of[name]}" for name in names)
    lines.append(f"| all frames shown, whole or askew | | | | {every} |")
    # Nothing is known of the time of what was ended before it was asked for it.
    seconds = {name: [row["by"][name]["seconds"] for row in rows if row["by"].get(name, {}).get("seconds")] for name in names}
    middle = " | ".join(f"{statistics.median(seconds[name]):.1f} s" for name in names)
    lines.append(f"| processor time, median | | | | {middle} |")
    most = " | ".join(f"{max(seconds[name]):.0f} s" for name in names)
    lines.append(f"| processor time, the longest | | | | {most} |")
    return "\n".join(lines) + "\n"


def write_page(rows, out, by):
    """index.html in the folder, with the thumbnails that lie in the sweeps' folders."""
    parts = [
        "<!doctype html><html lang='en'><meta charset='utf-8'><title>Sweeps and their panoramas</title>"
        "<style>body{font:14px sans-serif;margin:1em}"
        "td,th{padding:4px 8px;vertical-align:top;border-top:1px solid #ccc;text-align:left}"
        "img{display:block;max-width:300px;background:#ddd}.whole{color:#070}.other{color:#a00}</style>"
        "<h1>Sweeps and their panoramas</h1><table><tr><th>sweep<th>first, middle, last frame"
    ]
    parts += [f"<th>{html.escape(HEADINGS[name])}" for name in by]
    for row in rows:
        label = html.escape(f"{row['kind']}; {answers(row)}")
        frames = f"<img src='{row['sweep']}/frames.jpg' alt='frames'>"
        parts.append(f"<tr><td><b>{row['sweep']}</b><br>{label}<td>{frames}")
        for name in by:
            one = row["by"].get(name)
            if one is None:
                parts.append("<td>not run")
                continue
            word = "whole" if one["word"] == "whole" else "other"
            picture = f"<img loading='lazy' src='{row['sweep']}/{name}.jpg' alt='{name}'>" if one["picture"] else ""
            told = html.escape(f"{one['word']}, {one['seconds']} s {one['remark']}")
            parts.append(f"<td>{picture}<span class='{word}'>{told}</span>")
    (out / "index.html").write_text("".join(parts) + "</table></html>\n", encoding="utf-8")
    (out / "table.json").write_text(json.dumps(rows, indent=1) + "\n", encoding="utf-8")


def write_sheet(rows, out, by, path):
    """One picture of all thumbnails, a row for each sweep; the verdict stands right below what it is on."""
    width, height, label = 216, 74, 150
    black, grey = (20, 20, 20), (130, 130, 130)
    sheet = [np.full((30, label + (len(by) + 1) * (width + 6), 3), 255, np.uint8)]
    for column, name in enumerate(["frames", *[HEADINGS[name] for name in by]]):
        at = (label + column * (width + 6), 20)
        cv2.putText(sheet[0], name, at, cv2.FONT_HERSHEY_SIMPLEX, 0.5, black, 1, cv2.LINE_AA)
    for row in rows:
        strip = np.full((height + 34, sheet[0].shape[1], 3), 255, np.uint8)
        strip[0] = 205
        for index, line in enumerate(row["sweep"].split("_", 1)):
            cv2.putText(strip, line, (4, 24 + 18 * index), cv2.FONT_HERSHEY_SIMPLEX, 0.45, black, 1, cv2.LINE_AA)
        for column, name in enumerate(["frames", *by]):
            x, top, below = label + column * (width + 6), 8, 8
            thumbnail = out / row["sweep"] / f"{name}.jpg"
            if thumbnail.exists():
                small = fitted(cv2.imread(str(thumbnail)), width, height)
                below = top + small.shape[0]
                strip[top:below, x : x + small.shape[1]] = small
            if name != "frames":
                word = row["by"][name]["word"] if name in row["by"] else "not run"
                colour = grey if word == "not run" else (0, 110, 0) if word == "whole" else (0, 0, 170)
                cv2.putText(strip, word, (x, below + 16), cv2.FONT_HERSHEY_SIMPLEX, 0.42, colour, 1, cv2.LINE_AA)
        sheet.append(strip)
    cv2.imwrite(str(path), np.vstack(sheet), [cv2.IMWRITE_JPEG_QUALITY, 72])
