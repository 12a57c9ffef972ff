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
run convert-256-median-dither.png convert-color "$out/sample.bmp" "$out/convert-256-median-dither.png" --target 8 --dither
run convert-16-fixed.png convert-color "$out/sample.bmp" "$out/convert-16-fixed.png" --target 4 --fixed-palette
run convert-1-dither.png convert-color "$out/sample.bmp" "$out/convert-1-dither.png" --target 1 --dither --threshold 128

# Neighbourhood filters.

# Geometry.

# Selection, new images and compositing.
run select-ellipse.png select-image "$out/sample.bmp" "$out/select-ellipse.png" --ellipse 120,80,520,400 \
  --fill 255,0,255 --mask-out "$out/select-ellipse-mask.png"
run select-outside-polygon.png select-image "$out/sample.bmp" "$out/select-outside-polygon.png" \
  --polygon 320,40,600,440,40,440 --outside --fill 0,128,0
run auto-select-white.png auto-select-image "$out/sample.bmp" "$out/auto-select-white.png" --key 255,255,255 \
  --metric luma --tolerance 40 --mask-out "$out/auto-select-white-mask.png"
run auto-select-red-chroma.png auto-select-image "$out/sample.bmp" "$out/auto-select-red-chroma.png" \
  --key 255,0,0 --metric chroma --tolerance 20 --mask-out "$out/auto-select-red-chroma-mask.png"
run create-image.png create-image "$out/create-image.png" --width 320 --height 200 --depth 8 --colour 255,0,0
run copy-image.bmp copy-image "$out/sample.bmp" "$out/copy-image.bmp"

# Clipboard and the hidden mark.
