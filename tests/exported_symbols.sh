#!/usr/bin/env bash
# The shared library exports its C interface and nothing else: every defined dynamic symbol is one
# of the names of include/tz3effect.h, and each memory, status and tone function is among them.
set -euo pipefail
lib=$1
header=$2
exported=$(nm -D --defined-only "$lib" | awk '$2 ~ /^[TWDBR]$/ {print $3}' | sort -u)
declared=$(grep -oE '\b(TZ3|Tz3)[A-Za-z0-9]+\(' "$header" | tr -d '(' | sort -u)
status=0
for name in $exported; do
  if ! grep -qx "$name" <<<"$declared"; then
    echo "exported but not in the interface: $name"
    status=1
  fi
done
# The names the library must export, one group a line.
required=(
  Tz3GlobalAlloc Tz3GlobalLock Tz3GlobalUnlock Tz3GlobalFree Tz3GlobalSize Tz3GlobalHandle
  Tz3LiveBlocks Tz3SetAllocator Tz3GetErrorStatus Tz3SetProgressHandler Tz3SetDialogHandlers
  TZ3RGBRev TZ3RGBGamma TZ3RGBLevel TZ3YCCGamma TZ3YCCLevel TZ3YCCRev TZ3Chroma TZ3SetGray

  # colour depth conversion
  TZ3ConvertColor

  # filters
  TZ3CustomFilter TZ3Sharp TZ3AntiAlias TZ3Emboss
  TZ3Shade TZ3Mosaic TZ3Outline TZ3RemoveNoise

  # geometry
  TZ3Rotation TZ3RotationEx TZ3Affine
  TZ3Resize TZ3ResizeEx TZ3Panorama

  # selection, new images and compositing
  TZ3SelectImage TZ3SelectImageEx TZ3AutoSelectImage TZ3AutoSelectImageEx TZ3CreateImage TZ3CopyImage
  TZ3PasteImage TZ3Layer

  # clipboard and the hidden mark
  TZ3GetFromClipBrd TZ3SetToClipBrd TZ3IsClipBrdData TZ3ClearClipBrd TZ3SetSecretImage TZ3CheckSecretImage

)
for name in "${required[@]}"; do
  if ! grep -qx "$name" <<<"$exported"; then
    echo "missing from the library's exports: $name"
    status=1
  fi
done
count=$(wc -w <<<"$exported")
echo "$count symbols exported, all from the interface"
exit $status
