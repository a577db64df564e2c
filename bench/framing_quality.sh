#!/usr/bin/env bash
# Framing quality: every scenario clip and every labelled real video through
# facedet_replay --truth with each detector engine built, at the camera's pace
# (the replay's default frame cost) and in lockstep, and one table of the
# scores (scenario x engine x figure) per pace written into docs/FRAMING.md
# between that pace's marker comments.
#
# Usage: bench/framing_quality.sh
#   FACEDET_BUILD_DIR  the build to use (default build/release); builds nothing.
#                      Needs scenario_clip, facedet_replay, faceDet, camera_sim
#                      and facedet_detect (which engines the build has).
#   FRAMING_WORK       where clips, truths and replays go (default BUILD/framing_quality);
#                      each replay's report.html, replay.mp4 and timeline.png stay there.
#   FRAMING_ENGINES    engines to run (default: every engine the build has)
#   FRAMING_PACES      paces to run (default: camera lockstep)
#   FRAMING_ONLY       run only the sources whose name contains this text, and
#                      print their tables instead of writing them into the document
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
build=${FACEDET_BUILD_DIR:-$root/build/release}
work=${FRAMING_WORK:-$build/framing_quality}
shared=$(cd ../shared && pwd)
clip_tool=$build/tools/scenario_clip/scenario_clip
replay=$build/tools/facedet_replay/facedet_replay
detect=$build/tools/facedet_detect/facedet_detect

for tool in "$clip_tool" "$replay" "$detect" "$build/src/faceDet" "$build/tools/camera_sim/camera_sim"; do
    if [ ! -x "$tool" ]; then
        echo "framing_quality: no $tool (build it first:" \
            "cmake --build --preset release --target scenario_clip facedet_replay faceDet camera_sim facedet_detect)" >&2
        exit 2
    fi
done
mkdir -p "$work"

# An engine the build lacks says so when asked for; try each on one frame.
"$clip_tool" --scenario empty --frames 2 --preview 0 "$work/probe.png" --shared "$shared" >/dev/null
engines=${FRAMING_ENGINES:-}
if [ -z "$engines" ]; then
    for engine in mnn opencv; do
        if "$detect" --engine "$engine" --model "$shared/models/slim-320-quant-ADMM-50.mnn" \
            "$work/probe.png" 2>&1 >/dev/null | grep -q "not built in"; then
            echo "framing_quality: engine $engine is not built in, skipped" >&2
        else
            engines+="$engine "
        fi
    done
fi

# Sources: "name|source|truth" for every scenario, then every labelled video.
chosen() { [ -z "${FRAMING_ONLY:-}" ] || [[ $1 == *"$FRAMING_ONLY"* ]]; }
sources=()
for name in $("$clip_tool" --help | awk '/^  --scenario/ {on = 1; next} on && /^  --/ {on = 0} on {print $1}'); do
    chosen "$name" || continue
    "$clip_tool" --scenario "$name" --shared "$shared" --out "$work/$name.nv12" \
        --truth "$work/$name.csv" >/dev/null
    sources+=("$name|$work/$name.nv12|$work/$name.csv")
done
# The names come from the help text: a layout that hides them must not drop the scenarios' rows.
[ -n "${FRAMING_ONLY:-}" ] || [ ${#sources[@]} -gt 0 ] ||
    { echo "framing_quality: no scenario names in scenario_clip --help" >&2; exit 2; }
for labels in "$root"/tests/data/labels/*.csv; do
    name=$(basename "$labels" .csv)
    if chosen "$name" && [ -f "$shared/data/videos/$name.mp4" ]; then
        sources+=("$name|$shared/data/videos/$name.mp4|$labels")
    fi
done

paces=${FRAMING_PACES:-camera lockstep}
doc=$root/docs/FRAMING.md
# A partial run prints its tables instead of replacing the whole ones.
[ -n "${FRAMING_ONLY:-}" ] && doc=-
failed=0
replays=0
for pace in $paces; do
    mkdir -p "$work/$pace"
    runs=()
    paceFailed=0
    for entry in "${sources[@]}"; do
        IFS='|' read -r name source truth <<<"$entry"
        for engine in $engines; do
            out=$work/$pace/$name.$engine
            echo "framing_quality: $name, $engine, $pace" >&2
            rm -f "$out/summary.json"  # a failed run must not leave the last run's figures
            if ! "$replay" "$source" --pace "$pace" --engine "$engine" --truth "$truth" --out "$out" --force \
                >"$out.log" 2>&1; then
                echo "framing_quality: replay of $name with $engine at $pace failed, see $out.log" >&2
                failed=1
                paceFailed=1
            fi
            runs+=("$name" "$engine" "$out/summary.json")
            replays=$((replays + 1))
        done
    done
    # A table with a failed replay is printed, never written over the document's.
    target=$doc
    [ $paceFailed = 1 ] && target=-
    python3 "$root/bench/framing_table.py" "$target" "$pace" "${runs[@]}"
done
echo "framing_quality: $replays replays in $((SECONDS / 60)) min $((SECONDS % 60)) s;" \
    "tables written to ${doc/#-/standard output}$([ $failed = 1 ] && echo ' (those with a failed replay to standard output)'); replays in $work" >&2
exit $failed
