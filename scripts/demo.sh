#!/usr/bin/env bash
# Writes the sample test card and every effect built so far under the output folder.
set -euo pipefail
tz3=${1:-build/tz3}
out=${2:-out}
mkdir -p "$out"

run() {
  local name=$1; shift
  "$tz3" "$@"
  echo "  $name"
}

echo "Writing to $out/:"
run sample.bmp sample "$out/sample.bmp"
run sample.png sample "$out/sample.png"
"$tz3" info "$out/sample.bmp"
run rgb-rev.png rgb-rev "$out/sample.bmp" "$out/rgb-rev.png"
run rgb-rev-red.png rgb-rev "$out/sample.bmp" "$out/rgb-rev-red.png" --red
run rgb-rev-ellipse.png rgb-rev "$out/sample.bmp" "$out/rgb-rev-ellipse.png" --ellipse 120,80,520,400
run rgb-rev-outside-polygon.png rgb-rev "$out/sample.bmp" "$out/rgb-rev-outside-polygon.png" \
  --polygon 320,40,600,440,40,440 --outside
