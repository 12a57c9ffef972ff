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
run rgb-gamma.png rgb-gamma "$out/sample.bmp" "$out/rgb-gamma.png" --red 0.8 --green 0.4 --blue -0.6
run rgb-level.png rgb-level "$out/sample.bmp" "$out/rgb-level.png" --red 60 --green -30 --blue 0
run ycc-gamma.png ycc-gamma "$out/sample.bmp" "$out/ycc-gamma.png" --y 0.7 --cr -0.3 --cb 0.3
run ycc-level.png ycc-level "$out/sample.bmp" "$out/ycc-level.png" --y 40 --cr 20 --cb -20
run ycc-rev.png ycc-rev "$out/sample.bmp" "$out/ycc-rev.png" --y
run ycc-rev-chroma.png ycc-rev "$out/sample.bmp" "$out/ycc-rev-chroma.png" --cr --cb --ellipse 80,60,560,420
run chroma-gray.png chroma "$out/sample.bmp" "$out/chroma-gray.png" --amount -100
run chroma-vivid.png chroma "$out/sample.bmp" "$out/chroma-vivid.png" --amount 150 --polygon 0,0,640,0,0,480
run set-gray.png set-gray "$out/sample.bmp" "$out/set-gray.png"

# Colour depth conversion.

# Neighbourhood filters.

# Geometry.
run resize-half.png resize "$out/sample.bmp" "$out/resize-half.png" --width 320 --height 240 --interpolate
run resize-half.bmp resize "$out/sample.bmp" "$out/resize-half.bmp" --width 320 --height 240 --interpolate
run resize-double.png resize "$out/sample.bmp" "$out/resize-double.png" --width 1280 --height 960
run resize-smooth.png resize "$out/sample.bmp" "$out/resize-smooth.png" --width 1000 --height 300 --interpolate
# The half-size card joined onto the whole one: its segment from (40,40) to (280,40) is laid on the
# full card's (320,240) to (560,300), a little longer and pointing down to the right, so it comes out
# slightly larger and turned clockwise; then only the part left of the segment's direction.
run panorama.png panorama "$out/sample.bmp" "$out/resize-half.png" "$out/panorama.png" \
  --first 320,240,560,300 --second 40,40,280,40 --back 40,40,40
run panorama-seam.png panorama "$out/sample.bmp" "$out/resize-half.bmp" "$out/panorama-seam.png" \
  --first 320,240,560,300 --second 40,40,280,40 --seam left

# Selection, new images and compositing.

# Clipboard and the hidden mark.
