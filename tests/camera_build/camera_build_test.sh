#!/usr/bin/env bash
# The camera build run as docs/BUILDING.md's "The camera build" gives it, against a
# stub SDK made from platform/include: our headers, and per header one ARM
# library (mi_sys.h -> lib/libmi_sys.so) defining every MI_* function the
# header declares. Then faceDet must be an ARM program that needs each stub
# library by name and takes every MI_* function it calls from them.
#
#   camera_build_test.sh SOURCE_DIR
#
# Everything happens in a private temporary folder. Exit 77 (skipped) without
# the cross compiler.
set -euo pipefail
export LC_ALL=C # one sort order for sort and comm
src=$1
cc=arm-linux-gnueabihf-gcc
for tool in $cc arm-linux-gnueabihf-g++ readelf; do
  command -v $tool >/dev/null || { echo "no $tool: skipped"; exit 77; }
done
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

# The stub SDK. The compiler lists the functions each header declares itself
# (-aux-info), so a new declaration gets its stub without touching this test;
# the linker needs only the names, so every stub is int NAME(void).
mkdir -p "$tmp/sdk/include" "$tmp/sdk/lib" "$tmp/stubs"
cp "$src"/platform/include/*.h "$tmp/sdk/include/"
for header in "$tmp"/sdk/include/*.h; do
  module=$(basename "$header" .h)
  $cc -fsyntax-only -x c -aux-info "$tmp/stubs/$module.aux" "$header"
  sed -n "s|^/\* $header:[0-9]*:[A-Z]* \*/ extern [^(]*\b\(MI_[A-Za-z0-9_]*\) (.*|\1|p" \
    "$tmp/stubs/$module.aux" >"$tmp/stubs/$module.names"
  [ -s "$tmp/stubs/$module.names" ] || continue # types only
  sed 's/.*/int &(void) { return 0; }/' "$tmp/stubs/$module.names" >"$tmp/stubs/$module.c"
  $cc -shared -fPIC -o "$tmp/sdk/lib/lib$module.so" "$tmp/stubs/$module.c"
done
cat "$tmp"/stubs/*.names | sort >"$tmp/stubbed"
[ -s "$tmp/stubbed" ] || fail "no MI_* function found in $src/platform/include"

# The configure command from the build guide (its first command under the
# heading), with the build folder and the SDK path made private.
readme=$(awk '/^## The camera build/ { s = 1; next }
              s && !b && /^#/ { exit }
              s && /^```/ { b = 1; next }
              b { more = sub(/\\$/, ""); printf "%s ", $0; if (!more) exit }' "$src/docs/BUILDING.md")
read -ra words <<<"$readme"
command=()
for word in "${words[@]}"; do
  case $word in
    build/camera) word=$tmp/camera ;;
    *=/path/to/sdk) word=${word%=*}=$tmp/sdk ;;
  esac
  command+=("$word")
done
[[ ${words[0]:-} == cmake && " ${command[*]} " == *" $tmp/camera "* && " ${command[*]} " == *"=$tmp/sdk "* ]] ||
  fail "docs/BUILDING.md has no camera build command 'cmake -B build/camera ... -DMI_SDK_DIR=/path/to/sdk ...' under its heading: '$readme'"
echo "${command[*]}"
(cd "$src" && "${command[@]}") >"$tmp/configure.log" 2>&1 || { cat "$tmp/configure.log"; fail "configure"; }
# One job: the test runs beside the rest of the suite.
cmake --build "$tmp/camera" --target faceDet -j 1 >"$tmp/build.log" 2>&1 || { tail -n 40 "$tmp/build.log"; fail "build"; }

bin=$tmp/camera/src/faceDet
readelf -h "$bin" | grep -q 'Machine: *ARM$' || fail "faceDet is not an ARM program"
needed=$(readelf -d "$bin" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for lib in "$tmp"/sdk/lib/*.so; do
  grep -qx "${lib##*/}" <<<"$needed" || fail "faceDet does not need ${lib##*/}; it needs: $needed"
done
# Every MI_* import is a stub's, and no declared function is defined in the
# program (an emulation linked in instead of the SDK). The program's own
# MI_ISP_* callbacks are not declared in platform/include.
readelf -W --dyn-syms "$bin" | awk '$7 == "UND" && $8 ~ /^MI_/ { print $8 }' | sort -u >"$tmp/imported"
[ -s "$tmp/imported" ] || fail "faceDet imports no MI_* function"
unknown=$(comm -23 "$tmp/imported" "$tmp/stubbed")
[ -z "$unknown" ] || fail "faceDet imports MI_* functions no stub defines: $unknown"
readelf -W --syms "$bin" | awk '$4 == "FUNC" && $7 != "UND" { print $8 }' | sort -u >"$tmp/defined"
own=$(comm -12 "$tmp/defined" "$tmp/stubbed")
[ -z "$own" ] || fail "faceDet defines MI_* functions of the SDK itself: $own"
echo "faceDet needs $(ls "$tmp/sdk/lib" | tr '\n' ' ')and imports $(wc -l <"$tmp/imported") MI_* functions, all stubbed"
