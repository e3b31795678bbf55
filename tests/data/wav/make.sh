#!/usr/bin/env bash
# Makes the WAV files of the resample tests with sox: 0.1 s of a 1 kHz sine at half of
# full scale, mono, 32000 Hz, in each encoding that the tool must read at its level.
# Run from anywhere; the files land beside this script. -R: the same bytes every run;
# -D: no dither.
set -euo pipefail
cd "$(dirname "$0")"
tone=(synth 0.1 sine 1000 vol 0.5)
sox -R -D -n -r 32000 -c 1 -b 8 -e unsigned-integer pcm8.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 16 -e signed-integer pcm16.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 24 -e signed-integer pcm24.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 32 -e floating-point float32.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 8 -e a-law alaw.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 8 -e u-law ulaw.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 4 -e ima-adpcm ima-adpcm.wav "${tone[@]}"
sox -R -D -n -r 32000 -c 1 -b 4 -e ms-adpcm ms-adpcm.wav "${tone[@]}"
