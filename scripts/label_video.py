#!/usr/bin/python3
"""Helps label the faces of a real video for framing scores.

  label_video.py frames CLIP.nv12 EVERY DIR
      every EVERY-th frame of a raw 416x234 NV12 clip (scenario_clip --video
      writes one, scaled as the host platform scales the video) as DIR/NNNN.png
  label_video.py draft DETECTIONS FRAMES EVERY > LABELS.csv
      truth CSV from facedet_detect's lines '<DIR/NNNN.png> x y w h score' on
      those pictures; a face keeps the id of the nearest face of the previous
      labelled frame, if near enough
  label_video.py sheet LABELS.csv DIR OUT.png
      the labelled frames with their boxes and ids, tiled, to check by eye

Needs Debian's python3-numpy and python3-pil.
"""
import os
import re
import sys

import numpy as np
from PIL import Image, ImageDraw

W, H = 416, 234


def frames(clip, every, out):
    data = np.fromfile(clip, dtype=np.uint8)
    size = W * H * 3 // 2
    os.makedirs(out, exist_ok=True)
    for n in range(0, len(data) // size, every):
        f = data[n * size:(n + 1) * size]
        y = f[:W * H].reshape(H, W).astype(np.float32)
        uv = f[W * H:].reshape(H // 2, W // 2, 2).repeat(2, 0).repeat(2, 1).astype(np.float32) - 128
        # BT.601 video range, as the platform's NV12 is converted back to BGR
        c = 1.164 * (y - 16)
        rgb = np.stack([c + 1.596 * uv[..., 1], c - 0.392 * uv[..., 0] - 0.813 * uv[..., 1],
                        c + 2.017 * uv[..., 0]], -1)
        Image.fromarray(rgb.clip(0, 255).astype(np.uint8)).save(os.path.join(out, f"{n:04d}.png"))


def draft(detections, count, every):
    by_frame = {n: [] for n in range(0, count, every)}
    for line in open(detections):
        m = re.match(r"\S*?(\d+)\.png (-?\d+) (-?\d+) (\d+) (\d+) ", line)
        if m:
            by_frame[int(m[1])].append([int(v) for v in m.groups()[1:]])
    print(f"# size={W}x{H}\n# frames={count}\n# every={every}\nframe,person,x,y,w,h")
    previous, next_id = [], 0
    for n in sorted(by_frame):
        current = []
        for x, y, w, h in by_frame[n]:
            cx, cy = x + w / 2, y + h / 2
            near = [(abs(cx - px) + abs(cy - py), pid) for pid, px, py, pw in previous
                    if abs(cx - px) + abs(cy - py) < max(w, pw)]
            pid = min(near)[1] if near else next_id
            next_id = max(next_id, pid + 1)
            current.append((pid, cx, cy, w))
            x, y = max(0, x), max(0, y)
            print(f"{n},{pid},{x},{y},{min(w, W - x)},{min(h, H - y)}")
        previous = current


def sheet(labels, folder, out):
    rows = {}
    for line in open(labels):
        if line[0].isdigit():
            f, p, x, y, w, h = map(int, line.split(","))
            rows.setdefault(f, []).append((p, x, y, w, h))
    pictures = sorted(int(name[:4]) for name in os.listdir(folder) if name.endswith(".png"))
    cols = 4
    board = Image.new("RGB", (cols * W, -(-len(pictures) // cols) * H))
    for i, n in enumerate(pictures):
        im = Image.open(os.path.join(folder, f"{n:04d}.png")).convert("RGB")
        d = ImageDraw.Draw(im)
        for p, x, y, w, h in rows.get(n, []):
            colour = ["lime", "red", "cyan", "yellow", "magenta", "orange"][p % 6]
            d.rectangle([x, y, x + w - 1, y + h - 1], outline=colour)
            d.text((x + 2, y + 2), str(p), fill=colour)
        d.text((3, 3), str(n), fill="white")
        board.paste(im, ((i % cols) * W, (i // cols) * H))
    board.save(out)


if __name__ == "__main__":
    cmd, args = sys.argv[1], sys.argv[2:]
    if cmd == "frames":
        frames(args[0], int(args[1]), args[2])
    elif cmd == "draft":
        draft(args[0], int(args[1]), int(args[2]))
    elif cmd == "sheet":
        sheet(*args)
    else:
        sys.exit(__doc__)
