#!/bin/sh
# Makes the image file corpus in imagefile/: pictures written by GraphicsMagick ("gm",
# Debian's graphicsmagick), each beside GraphicsMagick's own decoding of it as a PPM
# (NAME.ref.ppm) at the depth gm decoded it to: 8 bits a sample, or 16 for 16-bit files,
# so that no reduction of gm's (it cuts 16-bit samples to v / 257 rounded down) stands
# between the file and the reference. The readers are tested against these references.
# A CMYK picture is turned to RGB by gm only when asked ("-colorspace RGB"); without it
# gm would write the inks themselves into the PPM.
#
#     sh tests/data/make-corpus.sh            # from the top of the source tree
#
# The source picture is drawn by gm itself (a gradient with two shapes, 16 bits a
# channel), so the corpus can be made again anywhere the same gm version is installed.
# GraphicsMagick 1.3.40 as packaged writes neither PSD nor run-length TGA; those come
# from our own sample writers in the tests instead.
set -eu
cd "$(dirname "$0")"
out=imagefile
mkdir -p "$out"
src=$(mktemp /tmp/kelp-corpus-XXXXXX.ppm)
trap 'rm -f "$src"' EXIT

gm convert -size 37x23 'gradient:#ff2000-#0030ff' \
    -fill '#20c040' -draw 'rectangle 5,4 16,12' \
    -fill white -draw 'circle 26,15 30,18' "$src"

gm convert "$src" -colors 2 -type Palette -compress None "$out/bmp1.bmp"
gm convert "$src" -colors 16 -compress None "$out/bmp4.bmp"
gm convert "$src" -colors 200 -compress None "$out/bmp8.bmp"
gm convert "$src" -colors 200 -compress RLE "$out/bmp8rle.bmp"
gm convert "$src" -type TrueColor -compress None "$out/bmp24.bmp"
gm convert "$src" -compress None "$out/tga24.tga"
gm convert "$src" -colors 200 "$out/tgamapped.tga"
gm convert "$src" "$out/pcx24.pcx"
gm convert "$src" -colors 200 "$out/pcx8.pcx"
gm convert "$src" -depth 16 -compress None "$out/tiff16.tif"
gm convert "$src" -depth 16 -compress LZW "$out/tiff16lzw.tif"
gm convert "$src" -interlace Line "$out/interlaced.png"
gm convert "$src" -interlace Line -quality 90 "$out/progressive.jpg"
gm convert "$src" -colorspace CMYK -quality 90 "$out/cmyk.jpg"

for f in "$out"/*.bmp "$out"/*.tga "$out"/*.pcx "$out"/*.tif "$out"/*.png "$out"/*.jpg; do
    gm convert "$f" -colorspace RGB "ppm:${f%.*}.ref.ppm"
done
