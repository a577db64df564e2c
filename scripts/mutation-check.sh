#!/usr/bin/env bash
# Plants known faults (scripts/mutants.list), one at a time, in a scratch copy
# of the tree, rebuilds, runs the fast suites and reports which fault no test
# caught. A developer tool: slow (one incremental build per fault), not for CI.
#
#   scripts/mutation-check.sh [-a AREA_REGEX] [-m FAULT_REGEX] [-o TABLE.md] [-l]
#
#   -a  only faults whose area matches (e.g. -a 'visca|net')
#   -m  only faults whose description or file matches
#   -o  also write the table to this file
#   -l  list the selected faults and stop
#
# Environment: MUTATION_DIR (scratch copy, default ../mut-<checkout name>, outside
# the checkout so that ccache shares objects with it), MUTATION_SLOW (regex of
# tests left out, default: the framing scenarios, which take minutes),
# MUTATION_JOBS (default 2).
# Exit status: 0 every selected fault was caught, 1 some were not, 2 set-up failed.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
area='.'
match='.'
table_out=''
list_only=0
while getopts 'a:m:o:l' opt; do
  case $opt in
    a) area=$OPTARG ;;
    m) match=$OPTARG ;;
    o) table_out=$OPTARG ;;
    l) list_only=1 ;;
    *) sed -n '2,19p' "$0"; exit 2 ;;
  esac
done

mapfile -t faults < <(grep -v '^\s*#' "$root/scripts/mutants.list" | grep -v '^\s*$' |
  awk -F' [|] ' -v a="$area" -v m="$match" '$1 ~ a && ($4 ~ m || $2 ~ m)')
if [ ${#faults[@]} -eq 0 ]; then
  echo "no fault matches" >&2
  exit 2
fi
if [ $list_only = 1 ]; then
  printf '%s\n' "${faults[@]}"
  exit 0
fi

scratch=${MUTATION_DIR:-$(dirname "$root")/mut-$(basename "$root")}
slow=${MUTATION_SLOW:-^Framing}
jobs=${MUTATION_JOBS:-2}
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
export CCACHE_DIR=${CCACHE_DIR:-$(dirname "$root")/.ccache} CCACHE_BASEDIR=$(dirname "$root") CCACHE_NOHASHDIR=true

mkdir -p "$scratch"
# Mirror the tree: sources deleted since the last run must not linger in the copy.
find "$scratch" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
tar -C "$root" --exclude=./build --exclude=./.git -cf - . | tar -C "$scratch" -xmf -  # fresh times: rebuild what changed
cd "$scratch" || exit 2
log=$scratch/mutation.log
: >"$log"

build() { cmake --build build/release -j "$jobs" >>"$log" 2>&1; }
# The suites named for the fault first, then the unit tests, then the daemon's:
# most faults stop early. Exit status 0 when every test passed.
run_tests() {
  if [ -n "${1:-}" ]; then
    ctest --test-dir build/release -R "$1" -E "$slow" -j "$jobs" --stop-on-failure --timeout 300 \
      >"$scratch/ctest.out" 2>&1 || return 1
  fi
  ctest --test-dir build/release -L unit -j "$jobs" --stop-on-failure --timeout 300 >"$scratch/ctest.out" 2>&1 &&
    ctest --test-dir build/release -L integration -E "$slow" -j "$jobs" --stop-on-failure --timeout 300 \
      >"$scratch/ctest.out" 2>&1
}
first_failure() {
  grep -m1 -E '\*\*\*(Failed|Timeout|Exception)|\(Failed\)|\(Timeout\)' "$scratch/ctest.out" |
    sed -E 's/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: //; s/^ *[0-9]+ - //; s/ +\.+.*//; s/ \(.*//'
}

# lld relinks the suites after each fault several times faster than ld.
linker=()
if command -v ld.lld >/dev/null; then
  linker=(-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld -DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld)
fi
echo "building the unmodified copy in $scratch" >&2
cmake --preset release "${linker[@]}" >>"$log" 2>&1 && build || { echo "the unmodified tree does not build; see $log" >&2; exit 2; }
run_tests || { echo "the unmodified tree fails its tests:" >&2; tail -20 "$scratch/ctest.out" >&2; exit 2; }

table="| area | file | fault | result | first test that failed |
|---|---|---|---|---|"
missed=0
n=0
for line in "${faults[@]}"; do
  IFS=$'\t' read -r f_area f_file f_sed f_what f_hint <<<"${line// | /$'\t'}"
  n=$((n + 1))
  cp "$root/$f_file" "$scratch/$f_file"
  sed -i -e "$f_sed" "$scratch/$f_file"
  changed=$(diff "$root/$f_file" "$scratch/$f_file" | grep -c '^<')
  if [ "$changed" != 1 ]; then
    result='NOT PLANTED'
    by="the expression changed $changed lines"
    missed=$((missed + 1))
  elif ! build; then
    result='caught'
    by='(the build)'
  elif run_tests "$f_hint"; then
    result='NOT CAUGHT'
    by='-'
    missed=$((missed + 1))
  else
    result='caught'
    by=$(first_failure)
  fi
  cp "$root/$f_file" "$scratch/$f_file"
  row="| $f_area | ${f_file##*/} | $f_what | $result | $by |"
  echo "[$n/${#faults[@]}] $row" >&2
  table+=$'\n'"$row"
done
build || true  # leave the copy built from the unmodified tree

echo "$table"
echo
echo "$((n - missed)) of $n faults caught"
[ -n "$table_out" ] && { echo "$table"; echo; echo "$((n - missed)) of $n faults caught"; } >"$table_out"
[ $missed = 0 ]
