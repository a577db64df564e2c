#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz preset: clang-14, ASan, UBSan) and runs
# each from its seed corpus in tests/fuzz/corpus/<target>.
#
# Usage: scripts/fuzz.sh [--seconds S] [--runs N] [TARGET...]
#   --seconds S  stop each target after S seconds (default 30 without --runs)
#   --runs N     stop each target after N executions (the long run)
#   TARGET       fuzz_visca_reply, fuzz_control_datagram, ... (default: all)
#
# New inputs go to build/fuzz-corpus/<target>, never into the repository. A
# crash, leak or time-out stops that target: its input is kept as
# build/fuzz-findings/<target>/crash-* (fix it, then add the input to the
# seed corpus), and the script exits 1 after the others ran. One line per
# target, also in build/fuzz-findings/summary.txt:
#   <target> executions=<n> seconds=<s> corpus=<files> result=ok|FAILED
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
seconds=
runs=
targets=()
while (($#)); do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    -h|--help) sed -n 2,17p "$0"; exit 0 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [[ -z $seconds && -z $runs ]]; then
  seconds=30
fi

if command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=${CMAKE_C_COMPILER_LAUNCHER:-ccache}
  export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER:-ccache}
fi
cd "$root"
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 >/dev/null

bin=$root/build/fuzz/tests/fuzz
if ((${#targets[@]} == 0)); then
  for f in "$bin"/fuzz_*; do
    [[ -x $f ]] && targets+=("$(basename "$f")")
  done
fi

# Image decoders allocate what a header claims before reading any pixel; a
# 4-megapixel cap keeps a 100-byte file from claiming gigabytes (OpenCV reads
# it when it loads, so it must be in the environment). One OpenCV thread: the
# inputs are tiny, and a thread pool per input only slows the run.
export OPENCV_IO_MAX_IMAGE_PIXELS=${OPENCV_IO_MAX_IMAGE_PIXELS:-4194304}
export OPENCV_FOR_THREADS_NUM=${OPENCV_FOR_THREADS_NUM:-1}

findings=$root/build/fuzz-findings
mkdir -p "$findings"
summary=${FUZZ_SUMMARY:-$findings/summary.txt}
: >"$summary"
limits=(-max_len=4096 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 -close_fd_mask=1)
[[ -n $seconds ]] && limits+=("-max_total_time=$seconds")
[[ -n $runs ]] && limits+=("-runs=$runs")
failed=0
for t in "${targets[@]}"; do
  corpus=$root/build/fuzz-corpus/$t
  mkdir -p "$corpus" "$findings/$t"
  seeds=$root/tests/fuzz/corpus/$t
  log=$findings/$t.log
  start=$(date +%s)
  # ASAN_OPTIONS: leaks count as findings; UBSan stops at the first report.
  if ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 \
      "$bin/$t" "${limits[@]}" -artifact_prefix="$findings/$t/" "$corpus" "$seeds" >"$log" 2>&1; then
    result=ok
  else
    result=FAILED
    failed=1
  fi
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  line="$t executions=${execs:-?} seconds=$(( $(date +%s) - start )) corpus=$(ls "$corpus" | wc -l) result=$result"
  echo "$line" | tee -a "$summary"
  if [[ $result == FAILED ]]; then
    grep -m5 -E "ERROR|runtime error|SUMMARY" "$log" >&2 || tail -20 "$log" >&2
  fi
done
exit $failed
