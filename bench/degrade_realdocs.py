#!/usr/bin/env python3
"""Writes harder copies of the annotated real documents, for measuring how recognition holds up on
photos worse than the specimens: smaller, more compressed, washed out, blurred, tilted.

    degrade_realdocs.py SOURCE_FOLDER OUTPUT_FOLDER

SOURCE_FOLDER holds NAME.jpg or NAME.png beside NAME.json in the `quorvel-cli eval` format (for
example ../shared/realdocs). Each page is written once per way of spoiling it, as OUTPUT/WAY/NAME.png
beside its annotation carried over (boxes are fractions of the image, so only a tilt moves them).
Pages stored in several forms on purpose (other EXIF orientations, turned copies) are counted once.
The copies are derived from images whose licences differ: keep OUTPUT outside the repository.
Needs python3-opencv.
"""

import json
import math
import pathlib
import re
import sys

import cv2
import numpy as np

# The same page again under another orientation or turn: measured once, in its first form.
REPEATS = re.compile(r"_orient[2-8]_|_rotate[+-]90|_passport_(90|180|270)$")


def small(image):
    # A phone photo sent through a messenger: 640 pixels on the longer side.
    scale = 640 / max(image.shape[:2])
    return cv2.resize(image, None, fx=scale, fy=scale, interpolation=cv2.INTER_AREA) if scale < 1 else image


def compressed(image):
    ok, data = cv2.imencode(".jpg", image, [cv2.IMWRITE_JPEG_QUALITY, 30])
    return cv2.imdecode(data, cv2.IMREAD_COLOR)


def washed_out(image):
    # Glare over the whole card: contrast at a half, lifted towards white.
    return cv2.convertScaleAbs(image, alpha=0.5, beta=110)


def blurred(image):
    return cv2.GaussianBlur(image, (0, 0), 1.5)


TILT_DEGREES = 8.0


def tilted(image):
    height, width = image.shape[:2]
    turn = cv2.getRotationMatrix2D((width / 2, height / 2), TILT_DEGREES, 1.0)
    cos, sin = abs(turn[0, 0]), abs(turn[0, 1])
    new_width, new_height = int(height * sin + width * cos), int(height * cos + width * sin)
    turn[0, 2] += new_width / 2 - width / 2
    turn[1, 2] += new_height / 2 - height / 2
    # A grey table around the turned photo, as a photo of a card lying askew shows. Turned at four
    # times the size and reduced again, so that the turn adds about as little blur as a camera would.
    big = cv2.resize(image, None, fx=4, fy=4, interpolation=cv2.INTER_CUBIC)
    scaled = turn.copy()
    scaled[:, 2] *= 4
    out = cv2.warpAffine(big, scaled, (4 * new_width, 4 * new_height), flags=cv2.INTER_CUBIC,
                         borderMode=cv2.BORDER_CONSTANT, borderValue=(120, 120, 120))
    out = cv2.resize(out, (new_width, new_height), interpolation=cv2.INTER_AREA)
    return out, turn, (width, height), (new_width, new_height)


def corners(field):
    if "corners" in field:
        return [tuple(c) for c in field["corners"]]
    x, y, w, h = field["x"], field["y"], field["width"], field["height"]
    return [(x, y), (x + w, y), (x + w, y + h), (x, y + h)]


def tilt_annotation(annotation, turn, size, new_size):
    result = dict(annotation)
    fields = []
    for field in annotation["fields"]:
        moved = []
        for cx, cy in corners(field):
            px, py = cx * size[0], cy * size[1]
            nx = turn[0, 0] * px + turn[0, 1] * py + turn[0, 2]
            ny = turn[1, 0] * px + turn[1, 1] * py + turn[1, 2]
            moved.append([round(nx / new_size[0], 5), round(ny / new_size[1], 5)])
        fields.append({"kind": field["kind"], "corners": moved})
    result["fields"] = fields
    return result


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    source, output = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    ways = {"small": small, "jpeg30": compressed, "washed": washed_out, "blur": blurred}
    count = 0
    for annotation_file in sorted(source.glob("*.json")):
        name = annotation_file.stem
        images = [p for p in (source / f"{name}.jpg", source / f"{name}.png") if p.exists()]
        if not images or REPEATS.search(name):
            continue
        # Read upright, as a viewer shows it (the EXIF orientation applied), which the boxes follow.
        image = cv2.imread(str(images[0]), cv2.IMREAD_COLOR)
        annotation = json.loads(annotation_file.read_text())
        for way, spoil in ways.items():
            folder = output / way
            folder.mkdir(parents=True, exist_ok=True)
            cv2.imwrite(str(folder / f"{name}.png"), spoil(image))
            (folder / f"{name}.json").write_text(json.dumps(annotation))
        folder = output / "tilt"
        folder.mkdir(parents=True, exist_ok=True)
        turned, turn, size, new_size = tilted(image)
        cv2.imwrite(str(folder / f"{name}.png"), turned)
        (folder / f"{name}.json").write_text(json.dumps(tilt_annotation(annotation, turn, size, new_size)))
        count += 1
    print(f"{count} pages, {len(ways) + 1} ways each, written under {output}")


if __name__ == "__main__":
    main()
