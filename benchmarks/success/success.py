# SPDX-License-Identifier: Apache-2.0
"""The table of success: who makes a whole panorama of which sweep.

    success.py --program TARNSTITCH --samples DIR --out DIR [--data DIR]... [--only NAME]... [--limit SECONDS]
               [--again | --kept] [--ours] [--table FILE.json] [--document FILE.md] [--sheet FILE.jpg]
    success.py --program TARNSTITCH --samples DIR --out DIR --check FILE.json

Each sweep's answers are kept in the folder of its name, and not made again without --again. --check makes the few
sweeps that are short, of the repository's own material, and fails where one ends otherwise than the table says. With
--only, the rows of other sweeps stay as they are in the table; with --ours, what others than TarnStitch made.
"""

import argparse
import dataclasses
import functools
import json
import pathlib
import re
import shutil
import subprocess
import sys
import time

import cv2

import makers
import pages
from judge import LOOKED_FOR, Judge
from render import arcade, beyond, read_truth, render
from sweeps import SWEEPS

cv2.setNumThreads(1)
BY = ("live", "finished", "uncut", "PANORAMA", "SCANS", "Hugin")


def options():
    parser = argparse.ArgumentParser(description="Who makes a whole panorama of which sweep.")
    parser.add_argument("--program", required=True, type=lambda name: pathlib.Path(name).resolve())
    parser.add_argument("--samples", required=True, type=pathlib.Path)
    parser.add_argument("--out", required=True, type=pathlib.Path)
    parser.add_argument("--data", action="append", default=[], type=pathlib.Path, help="photographs and clips")
    parser.add_argument("--only", action="append", default=[], help="a sweep's name")
    parser.add_argument("--limit", type=float, default=60, help="seconds of a processor for each picture")
    parser.add_argument("--without-hugin", action="store_true", help="which takes longer than all others together")
    parser.add_argument("--again", action="store_true", help="make what is there already, too")
    parser.add_argument("--ours", action="store_true", help="make anew what TarnStitch makes, keep the others' pictures")
    parser.add_argument("--kept", action="store_true", help="make nothing, tell what is there")
    parser.add_argument("--table", type=pathlib.Path, help="writes the table as JSON")
    parser.add_argument("--document", type=pathlib.Path, help="puts the table into a document, between its marks")
    parser.add_argument("--sheet", type=pathlib.Path, help="writes thumbnails of the repository's own")
    parser.add_argument("--check", type=pathlib.Path, help="a table that must still be true")
    return parser.parse_args()


def found(name, folders):
    """The files of that name, or pattern, in the folders and below."""
    for folder in folders:
        names = sorted(folder.rglob(name))
        if names:
            return names
    return []


def material(sweep, asked, folder):
    """The sweep's files and its truth, which is None of what was filmed; None where something is missing."""
    if sweep.recipe is None:
        names = found(sweep.source, [asked.samples, *asked.data])
        if not names:
            return None
        beside = names[0].with_suffix(".gt.csv")
        return contained(names, folder), read_truth(beside)[0] if beside.exists() else None
    if sweep.recipe.photo == "arcade":
        photo = the_arcade(asked.samples)
    else:
        names = found(sweep.recipe.photo, asked.data)
        if not names:
            return None
        photo = cv2.imread(str(names[0]))
    video = folder / f"{sweep.name}.mp4"
    truth = render(sweep.recipe, photo, video)
    outside = beyond(sweep.recipe, (photo.shape[1], photo.shape[0]), truth)
    if outside:
        print(f"{sweep.name}: {outside} frames look past the photograph's edge", file=sys.stderr)
    return [video], truth


def contained(files, folder):
    """A bare stream of JPEGs is put into a container, or its first picture would be taken for all of it."""
    if files[0].suffix != ".mjpeg":
        return files
    video = folder / f"{files[0].stem}.avi"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "mjpeg", "-i", files[0], "-c", "copy", video], check=True)
    return [video]


def read_frames(files, numbers):
    """Those frames of a video or of a list of pictures, and how many there are."""
    if len(files) > 1:
        return {number: cv2.imread(str(files[number])) for number in numbers if number < len(files)}, len(files)
    wanted, frames, count = set(numbers), {}, 0
    video = cv2.VideoCapture(str(files[0]))
    while video.grab():
        if count in wanted:
            frames[count] = video.retrieve()[1]
        count += 1
    return frames, count


def evenly(count, chosen=LOOKED_FOR):
    """The numbers of so many frames, from the first to the last."""
    return sorted({round(index * (count - 1) / (chosen - 1)) for index in range(chosen)})


def made_by_all(asked, files, folder, rivals):
    live, finished, uncut, key_frames = makers.tarnstitch(asked.program, files, folder, asked.limit)
    result = {"live": live, "finished": finished, "uncut": uncut}
    if not rivals:
        return result
    count = read_frames(files, [])[1]
    if len(files) > 1:
        key_frames = list(range(count))
    elif not key_frames or key_frames[-1] < 0.95 * (count - 1):
        key_frames = evenly(count, max(LOOKED_FOR, len(key_frames)))
    frames, _ = read_frames(files, key_frames)
    pictures = []
    for number in sorted(frames):  # readers may count what is damaged differently
        pictures.append(folder / f"key-{number:05d}.png")
        cv2.imwrite(str(pictures[-1]), frames[number], [cv2.IMWRITE_PNG_COMPRESSION, 1])
    for name in rivals:
        if len(pictures) < 2:
            result[name] = makers.Made(remark="fewer than two key frames")
        elif name == "Hugin":
            result[name] = makers.hugin(pictures, folder, asked.limit)
        else:
            result[name] = makers.opencv(name, pictures, folder, asked.limit)
    for picture in pictures:
        picture.unlink()
    return result


@functools.cache
def the_arcade(samples):
    return arcade(samples)


def comes_with_the_repository(sweep, asked):
    return sweep.recipe.photo == "arcade" if sweep.recipe else (asked.samples / sweep.source).is_file()


def run(sweep, asked, rivals, earlier=None):
    """The row of one sweep, with what others made by an earlier row; None where its material is missing."""
    folder = asked.out / sweep.name
    kept = folder / "row.json"
    if kept.exists() and not asked.again and not asked.ours:
        return json.loads(kept.read_text())
    if asked.kept:
        return None
    if earlier is None:
        shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True, exist_ok=True)
    begun = time.monotonic()
    given = material(sweep, asked, folder)
    if given is None:
        if not kept.exists():
            folder.rmdir()
        return None
    files, truth = given
    made = made_by_all(asked, files, folder, rivals)
    count = read_frames(files, [])[1]
    numbers = evenly(count)
    frames, _ = read_frames(files, numbers)
    judge = Judge([frames[number] for number in numbers], truth and [truth[number] for number in numbers])
    height, width = frames[0].shape[:2]
    row = {
        "sweep": sweep.name,
        "kind": sweep.kind,
        "from_the_repository": comes_with_the_repository(sweep, asked),
        "in_ci": sweep.in_ci,
        "size": [width, height],
        "frames": count,
        "live": made["live"].answers,
        "by": dict(earlier["by"]) if earlier else {},
    }
    shown = [frames[number] for number in (numbers[0], numbers[len(numbers) // 2], numbers[-1])]
    pages.write_thumbnail(shown, folder / "frames.jpg")
    for name, one in made.items():
        picture = cv2.imread(str(one.picture)) if one.picture else None
        verdict = judge.look(picture)
        row["by"][name] = {
            **dataclasses.asdict(verdict),
            "seconds": round(one.seconds, 1),
            "remark": "" if picture is not None else one.remark,
            "picture": [picture.shape[1], picture.shape[0]] if picture is not None else None,
        }
        if picture is not None:
            pages.write_thumbnail([picture], folder / f"{name}.jpg")
    for name in folder.iterdir():
        if name.suffix in (".png", ".mp4", ".avi", ".pto", ".csv") or name.name.startswith(("panorama", "second", "third")):
            name.unlink()
    row["by"] = {name: row["by"][name] for name in BY if name in row["by"]}
    kept.write_text(json.dumps(row, indent=1) + "\n")
    words = ", ".join(f"{name} {one['word']}" for name, one in row["by"].items())
    print(f"{sweep.name}: {words}; {time.monotonic() - begun:.0f} s", flush=True)
    return row


def check(asked):
    table = rows_of_table(asked.check)
    wrong = 0
    asked.again = True
    for sweep in (one for one in SWEEPS if one.in_ci):
        # PANORAMA takes the camera for one that turns, and long on a slide.
        row = run(sweep, asked, ("SCANS",) if sweep.recipe.motion == "slide" else ("PANORAMA", "SCANS"))
        for name, one in row["by"].items():
            said = table[sweep.name]["by"][name]["word"]
            if one["word"] != said:
                print(f"{sweep.name}, {name}: {one['word']}, where the table says {said}", file=sys.stderr)
                wrong += 1
    return 1 if wrong else 0


def rows_of_table(table):
    """The rows that are in a table already, by their sweeps."""
    if table is None or not table.exists():
        return {}
    return {row["sweep"]: row for row in json.loads(table.read_text())["sweeps"]}


def main():
    asked = options()
    asked.out.mkdir(parents=True, exist_ok=True)
    if asked.check:
        return check(asked)
    rivals = ["PANORAMA", "SCANS"] + (["Hugin"] if makers.has_hugin() and not asked.without_hugin else [])
    rows = []
    missing = []
    others = rows_of_table(asked.table) if asked.only or asked.ours else {}
    for sweep in SWEEPS:
        if asked.only and sweep.name not in asked.only:
            rows += [others[sweep.name]] if sweep.name in others else []
            continue
        earlier = others.get(sweep.name) if asked.ours else None
        row = run(sweep, asked, () if earlier else rivals, earlier)
        if row is None:
            missing.append(sweep.name)
        else:
            rows.append(row)
    if missing and not asked.kept:
        print(f"no material for {', '.join(missing)}: name its folder with --data", file=sys.stderr)
    if asked.table:
        asked.table.write_text(json.dumps({"limit": asked.limit, "sweeps": rows}, indent=1) + "\n")
    if asked.document:
        text = asked.document.read_text()
        table = pages.as_markdown(rows, BY)
        place = r"(?s)(<!-- table -->\n).*(<!-- end -->)"
        asked.document.write_text(re.sub(place, lambda mark: mark[1] + table + mark[2], text))
    own = [row for row in rows if row["from_the_repository"]]
    if asked.sheet and all((asked.out / row["sweep"] / "frames.jpg").exists() for row in own):
        pages.write_sheet(own, asked.out, BY, asked.sheet)
    elif asked.sheet:
        print(f"{asked.sheet} stays: not all thumbnails are in {asked.out}", file=sys.stderr)
    pages.write_page(rows, asked.out, BY)
    print(f"page: {asked.out / 'index.html'}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
