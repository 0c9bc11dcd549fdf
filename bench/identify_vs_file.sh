#!/usr/bin/env bash
# Whole-process comparison: "vxcam identify" against "file --brief", both
# timed in the same run over the same files, several times each:
#  - 2000 small generated files (zip archives, Office Open XML packages, tar,
#    gzip and bzip2 files, copies of the real files of tests/fixtures/identify
#    with varied tails, text and random bytes);
#  - 10 large ones of 20 to 100 MB (a jar-like zip of thousands of members,
#    a package, gzip data, a tar archive, text, random bytes, a PDF, a video).
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

if [ ! -x "$build/tools/vxcam" ] || [ ! -f "$build/plugins/libzsignatures.so" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
  cmake --build "$build" -j 2 --target vxcam fileidentifier signatures >/dev/null
fi
vxcam=("$build/tools/vxcam" --plugins "$build/plugins" identify)

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The same files on every run: a fixed seed.
python3 - "$work/files" "$count" tests/fixtures/identify <<'EOF'
import bz2, gzip, io, os, random, sys, tarfile, zipfile

root, count, fixtures = sys.argv[1], int(sys.argv[2]), sys.argv[3]
real = [open(os.path.join(fixtures, n), "rb").read() for n in sorted(os.listdir(fixtures)) if "." in n and not n.endswith(".sh")]
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
         + [("dat", lambda: rng.choice(real) + noise(rng.choice((0, 100, 3000))))] * 200
         + [("txt", lambda: text(rng.choice((100, 1000, 10000, 60000))))] * 300
         + [("bin", lambda: noise(rng.choice((16, 600, 5000, 64000))))] * 300)
kinds = kinds[:count]
rng.shuffle(kinds)
for i, (extension, make) in enumerate(kinds):
    with open(os.path.join(root, f"f{i:04d}.{extension}"), "wb") as f:
        f.write(make())
EOF

# The large set: a few files of 20 to 100 MB.
python3 - "$work/large" tests/fixtures/identify <<'EOF'
import gzip, io, os, random, sys, tarfile, zipfile

root, fixtures = sys.argv[1], sys.argv[2]
os.makedirs(root)
rng = random.Random(20261124)
mb = 1 << 20

def write(name, data):
    with open(os.path.join(root, name), "wb") as f:
        f.write(data)

def zip_of(members, compression=zipfile.ZIP_STORED):
    out = io.BytesIO()
    with zipfile.ZipFile(out, "w", compression) as z:
        for name, data in members:
            z.writestr(name, data)
    return out.getvalue()

fixture = lambda name: open(os.path.join(fixtures, name), "rb").read()
write("library.jar", zip_of([(f"org/example/pkg{i % 40}/Class{i}.class", rng.randbytes(rng.randrange(2000, 12000)))
                             for i in range(6000)]))
write("deck.pptx", zip_of([("[Content_Types].xml", b"<Types/>"), ("ppt/presentation.xml", b"<p/>")]
                          + [(f"ppt/media/image{i}.png", rng.randbytes(2 * mb)) for i in range(30)]))
write("backup.gz", gzip.compress(rng.randbytes(40 * mb), compresslevel=1, mtime=0))
out = io.BytesIO()
with tarfile.open(fileobj=out, mode="w", format=tarfile.USTAR_FORMAT) as t:
    for i in range(10):
        data = rng.randbytes(5 * mb)
        info = tarfile.TarInfo(f"part{i}.bin")
        info.size = len(data)
        t.addfile(info, io.BytesIO(data))
write("parts.tar", out.getvalue())
write("log.txt", b"".join(b"line %d of a long log file with nothing special in it\n" % i for i in range(1400000)))
write("noise.bin", rng.randbytes(100 * mb))
write("scan.pdf", fixture("text.pdf") + rng.randbytes(45 * mb))
write("movie.mp4", fixture("movie.mp4") + rng.randbytes(80 * mb))
write("sheet.xlsx", zip_of([("[Content_Types].xml", b"<Types/>"), ("xl/workbook.xml", b"<w/>"),
                            ("xl/worksheets/sheet1.xml", rng.randbytes(25 * mb))]))
write("sound.wav", fixture("sound.wav") + rng.randbytes(60 * mb))
EOF

echo "vxcam: ${vxcam[*]}"
echo "file:  $(command -v file) ($(file --version | head -1))"

# One run of a command over a set's files; its output is kept for the check below.
wall_ms() {
  local out=$1 set=$2
  shift 2
  local -a files
  mapfile -t files < <(find "$work/$set" -type f | sort)
  local start end
  start=$(date +%s%N)
  "$@" "${files[@]}" >"$out"
  end=$(date +%s%N)
  echo $(((end - start) / 1000000))
}

stats() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { printf "best %d ms, median %d ms", v[1], v[int((NR + 1) / 2)] }'; }
median() { printf '%s\n' "$@" | sort -n | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

for set in files large; do
  total=$(find "$work/$set" -type f | wc -l)
  echo
  echo "== $set: $total files, $(du -sh --apparent-size "$work/$set" | cut -f1) in all"
  vx_times=()
  file_times=()
  for ((r = 1; r <= repetitions; r++)); do
    vx_times+=("$(wall_ms "$work/vxcam.out" "$set" "${vxcam[@]}")")
    file_times+=("$(wall_ms "$work/file.out" "$set" file --brief)")
    echo "repetition $r: vxcam ${vx_times[-1]} ms, file ${file_times[-1]} ms"
  done
  # Both looked at every file.
  [ "$(wc -l <"$work/vxcam.out")" -eq "$total" ] || { echo "vxcam reported $(wc -l <"$work/vxcam.out") files" >&2; exit 1; }
  [ "$(wc -l <"$work/file.out")" -eq "$total" ] || { echo "file reported $(wc -l <"$work/file.out") files" >&2; exit 1; }
  echo "vxcam identify: $(stats "${vx_times[@]}")"
  echo "file --brief:   $(stats "${file_times[@]}")"
  awk -v v="$(median "${vx_times[@]}")" -v f="$(median "${file_times[@]}")" \
    'BEGIN { printf "file / vxcam (medians): %.1fx\n", (v > 0 ? f / v : 0) }'
done
# What each said of the large files.
paste -d'|' "$work/vxcam.out" "$work/file.out" | sed 's/|/   |   /'
