#!/usr/bin/env bash
# Whole-process comparison: "vxcam cfb cat" against "gsf cat" (libgsf-bin),
# each run over the same 64 MiB compound file of 1000 streams (written by
# gsf createole): one 7.5 MiB stream, and every stream in one process. Prints
# the wall time and peak memory of every repetition and the median of each.
#
#   bench/cfb_vs_gsf.sh [BUILD_DIR] [REPETITIONS]
#
# BUILD_DIR defaults to build-rel, configured as a Release build and built
# (vxcam) when vxcam is not there yet.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-rel}
repetitions=${2:-7}

command -v gsf >/dev/null || { echo "gsf (libgsf-bin) is needed" >&2; exit 1; }
if [ ! -x "$build/tools/vxcam" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
  cmake --build "$build" -j 2 --target vxcam >/dev/null
fi
vxcam="$build/tools/vxcam"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The streams: "large" (7.5 MiB) and 999 more in ten folders; every fourth
# is small (kept in small blocks), the others share the rest of the 64 MiB.
python3 - "$work/tree" <<'PY'
import os, random, sys
root = sys.argv[1]
rng = random.Random(20261123)
total, large = 64 << 20, 15 << 19
sizes = [100 + (i * 37) % 3900 if i % 4 == 0 else 0 for i in range(999)]
big = [i for i in range(999) if i % 4]
share = (total - large - sum(sizes)) // len(big)
for i in big:
    sizes[i] = share
for d in range(10):
    os.makedirs(os.path.join(root, f"d{d}"))
with open(os.path.join(root, "large"), "wb") as f:
    f.write(rng.randbytes(large))
for i, size in enumerate(sizes):
    with open(os.path.join(root, f"d{i % 10}", f"s{i}"), "wb") as f:
        f.write(rng.randbytes(size))
PY
(cd "$work/tree" && gsf createole "$work/file.cfb" large d0 d1 d2 d3 d4 d5 d6 d7 d8 d9 >/dev/null 2>&1)
echo "file: $(stat -c %s "$work/file.cfb") bytes, $(gsf list "$work/file.cfb" | grep -c '^f') streams"

# Every stream in the order vxcam lists them, for gsf to write in the same order.
mapfile -t streams < <("$vxcam" --json cfb ls "$work/file.cfb" |
  python3 -c 'import json, sys
for line in sys.stdin:
    o = json.loads(line)
    if o["kind"] == "stream": print(o["path"][1:])')

# One run: wall milliseconds and peak memory (KiB); the output is kept for the check below.
run() {
  local out=$1
  shift
  local start end
  start=$(date +%s%N)
  /usr/bin/time -f %M -o "$work/rss" "$@" >"$out"
  end=$(date +%s%N)
  echo "$(((end - start) / 1000000)) $(cat "$work/rss")"
}

median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

measure() {
  local label=$1 vx_args=$2
  shift 2
  local vx_ms=() vx_kb=() gsf_ms=() gsf_kb=() r m
  for ((r = 1; r <= repetitions; r++)); do
    read -r m k < <(run "$work/vx.out" "$vxcam" cfb cat "$work/file.cfb" $vx_args)
    vx_ms+=("$m") vx_kb+=("$k")
    read -r m k < <(run "$work/gsf.out" gsf cat "$work/file.cfb" "$@")
    gsf_ms+=("$m") gsf_kb+=("$k")
    echo "$label, repetition $r: vxcam ${vx_ms[-1]} ms ${vx_kb[-1]} KiB, gsf ${gsf_ms[-1]} ms ${gsf_kb[-1]} KiB"
  done
  cmp -s "$work/vx.out" "$work/gsf.out" || { echo "$label: the outputs differ" >&2; exit 1; }
  echo "$label ($(stat -c %s "$work/vx.out") bytes): vxcam median $(median "${vx_ms[@]}") ms," \
    "$(median "${vx_kb[@]}") KiB; gsf median $(median "${gsf_ms[@]}") ms, $(median "${gsf_kb[@]}") KiB"
}

measure "one large stream" "/large" large
measure "every stream" "--all" "${streams[@]}"
