#!/usr/bin/env bash
# Whole-process comparison: "vxcam identify" against "file --brief", each run
# once over the same 2000 generated files (zip archives, Office Open XML
# packages, tar, gzip and bzip2 files, text and random bytes), several times.
# Prints the wall time of every repetition and the best and median of each.
#
#   bench/identify_vs_file.sh [BUILD_DIR] [REPETITIONS]
#
# BUILD_DIR defaults to build-rel, configured as a Release build and built
# (vxcam and its plug-in) when vxcam is not there yet.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-rel}
repetitions=${2:-7}
count=2000

if [ ! -x "$build/tools/vxcam" ] || [ ! -f "$build/plugins/libfileidentifier.so" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DVX_BUILD_TESTS=OFF -DVX_BUILD_BENCH=OFF >/dev/null
  cmake --build "$build" -j 2 --target vxcam fileidentifier >/dev/null
fi
vxcam=("$build/tools/vxcam" --plugins "$build/plugins" --json identify)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The same files on every run: a fixed seed.
python3 - "$work/files" "$count" <<'EOF'
import bz2, gzip, io, os, random, sys, tarfile, zipfile

root, count = sys.argv[1], int(sys.argv[2])
os.makedirs(root)
rng = random.Random(20261123)
words = ("camera pool archive signature member folder package stream sector "
         "buffer report policy header table entry record value").split()

def text(size):
    out, length = [], 0
    while length < size:
        word = rng.choice(words)
        out.append(word)
        length += len(word) + 1
    return (" ".join(out) + "\n").encode()

def noise(size):
    return rng.randbytes(size)

def payload():
    size = rng.choice((200, 800, 3000, 12000, 48000))
    return text(size) if rng.random() < 0.6 else noise(size)

def zip_of(members, compression):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", compression) as z:
        for name, data in members:
            z.writestr(name, data)
    return out.getvalue()

def plain_zip():
    members = [(f"dir{rng.randrange(3)}/file{i}.txt", payload()) for i in range(rng.randrange(1, 6))]
    return zip_of(members, rng.choice((zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED)))

PACKAGES = {"docx": "word/document.xml", "xlsx": "xl/workbook.xml", "pptx": "ppt/presentation.xml"}

def package(kind):
    xml = b'<?xml version="1.0" encoding="UTF-8"?><root>' + text(rng.choice((300, 3000, 20000))) + b"</root>"
    members = [("[Content_Types].xml", b"<Types/>"), ("_rels/.rels", b"<Relationships/>"),
               ("docProps/core.xml", b"<coreProperties/>"), (PACKAGES[kind], xml)]
    return zip_of(members, zipfile.ZIP_DEFLATED)

def tar_of():
    out = io.BytesIO()
    fmt = rng.choice((tarfile.USTAR_FORMAT, tarfile.GNU_FORMAT, tarfile.PAX_FORMAT))
    with tarfile.open(fileobj=out, mode="w", format=fmt) as t:
        for i in range(rng.randrange(1, 4)):
            data = payload()
            info = tarfile.TarInfo(f"member{i}.bin")
            info.size = len(data)
            t.addfile(info, io.BytesIO(data))
    return out.getvalue()

kinds = ([("zip", plain_zip)] * 300
         + [(k, lambda k=k: package(k)) for k in PACKAGES for _ in range(100)]
         + [("tar", tar_of)] * 250
         + [("gz", lambda: gzip.compress(payload(), mtime=0))] * 250
         + [("bz2", lambda: bz2.compress(payload()))] * 100
         + [("txt", lambda: text(rng.choice((100, 1000, 10000, 60000))))] * 400
         + [("bin", lambda: noise(rng.choice((16, 600, 5000, 64000))))] * 400)
kinds = kinds[:count]
rng.shuffle(kinds)
for i, (extension, make) in enumerate(kinds):
    with open(os.path.join(root, f"f{i:04d}.{extension}"), "wb") as f:
        f.write(make())
EOF

mapfile -t files < <(find "$work/files" -type f | sort)
echo "${#files[@]} files, $(du -sh "$work/files" | cut -f1) in all"
echo "vxcam: ${vxcam[*]}"
echo "file:  $(command -v file) ($(file --version | head -1))"

# One run of a command over every file; its output is kept for the check below.
wall_ms() {
  local out=$1
  shift
  local start end
  start=$(date +%s%N)
  "$@" "${files[@]}" >"$out"
  end=$(date +%s%N)
  echo $(((end - start) / 1000000))
}

vx_times=()
file_times=()
for ((r = 1; r <= repetitions; r++)); do
  vx_times+=("$(wall_ms "$work/vxcam.out" "${vxcam[@]}")")
  file_times+=("$(wall_ms "$work/file.out" file --brief)")
  echo "repetition $r: vxcam ${vx_times[-1]} ms, file ${file_times[-1]} ms"
done

# Both looked at every file.
[ "$(wc -l <"$work/vxcam.out")" -eq "${#files[@]}" ] || { echo "vxcam reported $(wc -l <"$work/vxcam.out") files" >&2; exit 1; }
[ "$(wc -l <"$work/file.out")" -eq "${#files[@]}" ] || { echo "file reported $(wc -l <"$work/file.out") files" >&2; exit 1; }

stats() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { printf "best %d ms, median %d ms", v[1], v[int((NR + 1) / 2)] }'; }
best() { printf '%s\n' "$@" | sort -n | head -1; }
echo "vxcam identify: $(stats "${vx_times[@]}")"
echo "file --brief:   $(stats "${file_times[@]}")"
awk -v v="$(best "${vx_times[@]}")" -v f="$(best "${file_times[@]}")" \
  'BEGIN { printf "file / vxcam (best times): %.1fx\n", (v > 0 ? f / v : 0) }'
