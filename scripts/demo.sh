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
printf '%s\n' '-1 -1 -1 -1 -1' '-1  2  2  2 -1' '-1  2  8  2 -1' '-1  2  2  2 -1' '-1 -1 -1 -1 -1' >"$out/kernel5x5.txt"
printf '%s\n' '1 2 1' '2 4 2' '1 2 1' >"$out/kernel3x3.txt"
run custom-filter-5x5.png custom-filter "$out/sample.bmp" "$out/custom-filter-5x5.png" --kernel "$out/kernel5x5.txt"
run custom-filter-blur-red.png custom-filter "$out/sample.bmp" "$out/custom-filter-blur-red.png" \
  --kernel "$out/kernel3x3.txt" --red --ellipse 120,80,520,400
run sharp.png sharp "$out/sample.bmp" "$out/sharp.png" --strength 80
run anti-alias.png anti-alias "$out/sample.bmp" "$out/anti-alias.png"
run emboss.png emboss "$out/sample.bmp" "$out/emboss.png" --direction 1 --depth 4 --bias 128
run emboss-outside-polygon.png emboss "$out/sample.bmp" "$out/emboss-outside-polygon.png" --direction 6 \
  --polygon 320,40,600,440,40,440 --outside
run shade.png shade "$out/sample.bmp" "$out/shade.png" --radius 4
run shade-ellipse.png shade "$out/sample.bmp" "$out/shade-ellipse.png" --radius 12 --ellipse 120,80,520,400
run mosaic.png mosaic "$out/sample.bmp" "$out/mosaic.png" --width 16 --height 16
run mosaic-polygon.png mosaic "$out/sample.bmp" "$out/mosaic-polygon.png" --width 24 --height 8 \
  --polygon 320,40,600,440,40,440
run outline.png outline "$out/sample.bmp" "$out/outline.png" --operator 2 --gain 1
run outline-green.png outline "$out/sample.bmp" "$out/outline-green.png" --channel 2 --operator 0 --gain 4
run remove-noise.png remove-noise "$out/sample.bmp" "$out/remove-noise.png" --method 0
run remove-noise-selective.png remove-noise "$out/sample.bmp" "$out/remove-noise-selective.png" --method 1 \
  --level 200 --ellipse 80,60,560,420 --outside

# Geometry.
run rotation-30.png rotation "$out/sample.bmp" "$out/rotation-30.png" --angle 3000 --interpolate \
  --background 32,32,96
run rotation-90.png rotation "$out/sample.bmp" "$out/rotation-90.png" --angle 9000
run rotation-keep-size.png rotation "$out/sample.bmp" "$out/rotation-keep-size.png" --angle -4500 --keep-size \
  --flip-h
run affine.png affine "$out/sample.bmp" "$out/affine.png" --points 60,40,600,20,620,460,30,430
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
# A 1-bit BMP of W x H whose bits are set in the rectangle LEFT..RIGHT, TOP..BOTTOM (rows from the
# top; LEFT and RIGHT + 1 multiples of 8), written byte by byte.
le16() { printf '\\x%02x\\x%02x' $(($1 & 255)) $((($1 >> 8) & 255)); }
le32() { le16 $(($1 & 65535)); le16 $((($1 >> 16) & 65535)); }
rect_mask() {
  local w=$1 h=$2 l=$3 t=$4 r=$5 b=$6 file=$7
  local stride=$(((w + 31) / 32 * 4))
  local size=$((stride * h)) y inside outside
  inside=$(mktemp) outside=$(mktemp)
  head -c "$stride" /dev/zero > "$outside"
  { head -c $((l / 8)) /dev/zero; head -c $(((r - l + 1) / 8)) /dev/zero | tr '\0' '\377'
    head -c $((stride - l / 8 - (r - l + 1) / 8)) /dev/zero; } > "$inside"
  {
    printf 'BM%b' "$(le32 $((62 + size)); le32 0; le32 62)"
    printf '%b' "$(le32 40; le32 "$w"; le32 "$h"; le16 1; le16 1; le32 0; le32 "$size"; le32 0; le32 0; le32 0; le32 0)"
    printf '\0\0\0\0\377\377\377\0'
    for ((y = h - 1; y >= 0; y--)); do
      if ((y >= t && y <= b)); then cat "$inside"; else cat "$outside"; fi
    done
  } > "$file"
  rm -f "$inside" "$outside"
}
rect_mask 640 480 240 160 399 319 "$out/paste-mask.bmp"
echo "  paste-mask.bmp"
run paste-rotated-half.png paste-image "$out/sample.bmp" "$out/sample.bmp" "$out/paste-rotated-half.png" \
  --mask "$out/paste-mask.bmp" --angle 3000 --opacity 128 --at 170,130 --keep-size
run paste-grown.png paste-image "$out/sample.bmp" "$out/sample.bmp" "$out/paste-grown.png" \
  --mask "$out/paste-mask.bmp" --angle -4500 --mirror --at 600,60 --back 40,40,90
run layer-keyed.png layer "$out/sample.bmp" "$out/rgb-rev.png" "$out/layer-keyed.png" \
  --key 127,127,127 --at 320,240 --opacity 220 --back 30,30,30
run layer-keyed-kept.png layer "$out/sample.bmp" "$out/rgb-rev.png" "$out/layer-keyed-kept.png" \
  --key 127,127,127 --at 160,120 --keep-size

# Clipboard and the hidden mark.
run secret-marked.bmp set-secret-image "$out/sample.bmp" "$out/secret-marked.bmp" --text "tz3effect" --size 48 \
  --strength 12 --box 80,160,560,320
run secret-found.png check-secret-image "$out/sample.bmp" "$out/secret-marked.bmp" "$out/secret-found.png" \
  --threshold 6
TZ3_CLIPBOARD=memory run "clipboard (in-process store)" set-to-clip-brd "$out/secret-marked.bmp"
