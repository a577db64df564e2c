#!/usr/bin/env python3
"""Writes the framing scores of replays at one pace as one Markdown table into a document.

  framing_table.py DOC.md|- PACE NAME ENGINE SUMMARY.json [NAME ENGINE SUMMARY.json ...]

Each pace has its own table between its own two marker comments. Only the
text between them is replaced, so the words around the table stay; a
document without the markers gets them at its end. With - for the document
the table goes to standard output.
"""
import json
import sys

BEGIN = "<!-- {} framing table: made by bench/framing_quality.sh, do not edit by hand -->"
END = "<!-- end of {} framing table -->"

# (key in the summary's "truth" object, column title, how to show it)
COLUMNS = [
    ("frames_scored", "frames scored", "{:d}"),
    ("frames_with_person", "with a person", "{:d}"),
    ("face_in_view", "face in view", "{:.0%}"),
    ("face_in_centre_third", "in centre third", "{:.0%}"),
    ("centre_offset_median", "offset median", "{:.2f}"),
    ("centre_offset_p95", "offset p95", "{:.2f}"),
    ("face_height_median", "face height median", "{:.2f}"),
    ("face_height_p95", "face height p95", "{:.2f}"),
    ("moves_per_minute", "moves/min", "{:.0f}"),
    ("reversal_share", "reversals", "{:.0%}"),
    ("entry_to_frame_s", "entry to framed (s)", "{:.1f}"),
    ("exit_to_full_view_s", "exit to full view (s)", "{:.1f}"),
    ("target_changes_per_minute", "target changes/min", "{:.1f}"),
]


def row(name, engine, path):
    try:
        with open(path) as f:
            truth = json.load(f).get("truth")
    except (OSError, ValueError) as e:
        why = "replay failed" if isinstance(e, FileNotFoundError) else "unreadable summary"
        return f"| {name} | {engine} | {why} |" + " |" * (len(COLUMNS) - 1)
    if not isinstance(truth, dict):
        return f"| {name} | {engine} | not scored |" + " |" * (len(COLUMNS) - 1)
    cells = []
    for key, _, shown in COLUMNS:
        value = truth.get(key)
        cells.append("–" if value is None else shown.format(value))
    return f"| {name} | {engine} | " + " | ".join(cells) + " |"


def main(doc, pace, runs):
    lines = ["| scenario | engine | " + " | ".join(c[1] for c in COLUMNS) + " |",
             "|---|---|" + "---:|" * len(COLUMNS)]
    lines += [row(*runs[i:i + 3]) for i in range(0, len(runs), 3)]
    begin, end = BEGIN.format(pace), END.format(pace)
    table = begin + "\n" + "\n".join(lines) + "\n" + end
    if doc == "-":
        print(f"pace: {pace}\n" + "\n".join(lines) + "\n")
        return
    try:
        with open(doc) as f:
            text = f.read()
    except FileNotFoundError:
        text = "# Framing quality\n"
    if begin in text and end in text:
        text = text[:text.index(begin)] + table + text[text.index(end) + len(end):]
    else:
        text = text.rstrip("\n") + "\n\n" + table + "\n"
    with open(doc, "w") as f:
        f.write(text)


if __name__ == "__main__":
    if len(sys.argv) < 3 or (len(sys.argv) - 3) % 3:
        sys.exit(__doc__)
    main(sys.argv[1], sys.argv[2], sys.argv[3:])
