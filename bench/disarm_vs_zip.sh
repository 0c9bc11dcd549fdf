#!/usr/bin/env bash
# Whole-run comparison: "vxcam disarm" over 500 generated Office Open XML
# packages (10 KB to 5 MB, log-uniform; text-heavy and media-heavy alike) in
# one process, against unpacking and repacking each of them with "unzip"
# and "zip" (the least any rewriting of a package costs with the usual
# tools). Both run over the same files in the same run, several times;
# prints every repetition and the median of each.
#
#   bench/disarm_vs_zip.sh [BUILD_DIR] [REPETITIONS]
#
# BUILD_DIR defaults to build-rel, configured as a Release build and built
# (vxcam and its plug-ins) when vxcam is not there yet.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build-rel}
repetitions=${2:-3}
count=500

if [ ! -x "$build/tools/vxcam" ] || [ ! -f "$build/plugins/libooxml.so" ]; then
  cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF -DVX_BUILD_BENCH=OFF >/dev/null
  cmake --build "$build" -j 2 --target vxcam fileidentifier ooxml openxml >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# The same packages on every run: a fixed seed.
python3 - "$work/in" "$count" <<'PYEOF'
import math, os, random, sys, zipfile
root, count = sys.argv[1], int(sys.argv[2])
os.makedirs(root)
rng = random.Random(20261124)
words = "the camera reads each part of the package and writes what the policy keeps".split()
W = 'xmlns:w="http://schemas.openxmlformats.org/wordprocessingml/2006/main"'
R = "http://schemas.openxmlformats.org/officeDocument/2006/relationships"
types = ('<?xml version="1.0" encoding="UTF-8" standalone="yes"?>'
         '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
         '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
         '<Default Extension="xml" ContentType="application/xml"/><Default Extension="png" ContentType="image/png"/>'
         '<Override PartName="/word/document.xml" ContentType="application/vnd.openxmlformats-officedocument.wordprocessingml.document.main+xml"/>'
         '<Override PartName="/docProps/core.xml" ContentType="application/vnd.openxmlformats-package.core-properties+xml"/></Types>')
package_rels = ('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                f'<Relationship Id="rId1" Type="{R}/officeDocument" Target="word/document.xml"/>'
                '<Relationship Id="rId2" Type="http://schemas.openxmlformats.org/package/2006/relationships/metadata/core-properties" Target="docProps/core.xml"/>'
                '</Relationships>')
for i in range(count):
    size = int(math.exp(rng.uniform(math.log(10e3), math.log(5e6))))
    media = size // 2 if i % 2 else size // 10
    paragraphs, length = [], 0
    while length < size - media:
        p = "<w:p><w:r><w:t>" + " ".join(rng.choice(words) for _ in range(40)) + "</w:t></w:r></w:p>"
        paragraphs.append(p); length += len(p) // 6  # text compresses about sixfold
    images = max(1, media // 200000)
    rels = "".join(f'<Relationship Id="rImg{k}" Type="{R}/image" Target="media/image{k}.png"/>' for k in range(images))
    rels += f'<Relationship Id="rLink" Type="{R}/hyperlink" Target="https://example.com/{i}" TargetMode="External"/>'
    with zipfile.ZipFile(f"{root}/doc{i:03}.docx", "w", zipfile.ZIP_DEFLATED) as z:
        z.writestr("[Content_Types].xml", types)
        z.writestr("_rels/.rels", package_rels)
        z.writestr("docProps/core.xml", '<cp:coreProperties xmlns:cp="http://schemas.openxmlformats.org/package/2006/metadata/core-properties"/>')
        z.writestr("word/document.xml", f'<w:document {W}><w:body>' + "".join(paragraphs) + "</w:body></w:document>")
        z.writestr("word/_rels/document.xml.rels", '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">' + rels + "</Relationships>")
        for k in range(images):
            z.writestr(f"word/media/image{k}.png", b"\x89PNG\r\n\x1a\n" + rng.randbytes(media // images))
PYEOF
du -sh "$work/in" | sed 's/^/packages: /'
cat > "$work/policy.xml" <<'XML'
<config><wordConfig><external_hyperlinks>sanitise</external_hyperlinks><metadata>sanitise</metadata>
<embedded_images>allow</embedded_images></wordConfig></config>
XML

now() { date +%s.%N; }
vx=() zp=()
for r in $(seq "$repetitions"); do
  rm -rf "$work/out" "$work/repack"; mkdir -p "$work/repack"
  t0=$(now)
  "$build/tools/vxcam" --plugins "$build/plugins" -r disarm "$work/in" --policy "$work/policy.xml" -o "$work/out" >/dev/null
  t1=$(now)
  for f in "$work"/in/*.docx; do
    d="$work/repack/x"; rm -rf "$d"; mkdir "$d"
    unzip -q "$f" -d "$d" && (cd "$d" && zip -q -r -X "../$(basename "$f")" .)
  done
  t2=$(now)
  vx+=("$(echo "$t1 - $t0" | bc)") zp+=("$(echo "$t2 - $t1" | bc)")
  printf 'run %d: vxcam disarm %6.2f s   unzip+zip %6.2f s\n' "$r" "${vx[-1]}" "${zp[-1]}"
done
median() { printf '%s\n' "$@" | sort -n | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }
printf 'median over %d runs: vxcam disarm %.2f s, unzip+zip %.2f s\n' "$repetitions" "$(median "${vx[@]}")" "$(median "${zp[@]}")"
