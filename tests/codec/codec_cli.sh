#!/usr/bin/env bash
# kelp codecs and kelp codec-roundtrip as a person runs them: the shipped plug-ins are
# listed, a generated picture and a PNG file go through each codec with a PSNR above
# its bound, and mistakes give clear errors with non-zero exit codes.
set -uo pipefail
kelp=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME=$work/home
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

list=$("$kelp" codecs) || fail "kelp codecs exited $?"
for fcc in MJPG DVSD DVCS; do
    grep -q "^$fcc  *100  " <<<"$list" || fail "kelp codecs does not list $fcc: $list"
done

# psnr OUTPUT: the PSNR figure of a round trip's line.
psnr() { sed -n 's/.*PSNR \([0-9.]*\) dB$/\1/p' <<<"$1"; }
above() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a >= b) }'; }

# FOURCC BOUND ARGS...
while read -r fcc bound args; do
    out=$("$kelp" codec-roundtrip --generate --codec "$fcc" $args "$work/$fcc.png" 2>&1) ||
        { fail "roundtrip $fcc $args: $out"; continue; }
    value=$(psnr "$out")
    above "${value:-0}" "$bound" || fail "roundtrip $fcc $args: PSNR ${value:-none} < $bound"
    [ -s "$work/$fcc.png" ] || fail "roundtrip $fcc wrote no PNG"
done <<'CASES'
MJPG 39
MJPG 39 --bits 32
MJPG 30 --quality 20
DVSD 37
DVCS 37
DVCS 40 --dv50
CASES

# The PNG written above read back as the input of another round trip.
out=$("$kelp" codec-roundtrip "$work/DVSD.png" --codec MJPG "$work/again.png" 2>&1) ||
    fail "roundtrip of a PNG file: $out"
above "$(psnr "$out")" 39 || fail "roundtrip of a PNG file: $out"

# Mistakes: exit code and the start of the message.
expect_error() {
    local code=$1 text=$2
    shift 2
    local out rc
    out=$("$kelp" codec-roundtrip "$@" 2>&1)
    rc=$?
    [ "$rc" -eq "$code" ] || fail "codec-roundtrip $* exited $rc, expected $code"
    grep -q -- "$text" <<<"$out" || fail "codec-roundtrip $*: '$out' lacks '$text'"
}
expect_error 1 "no codec compresses" --generate --codec XVID
expect_error 1 "no codec compresses 24-bit BGR 640x480 to 'DVSD'" --generate 640x480 --codec DVSD
expect_error 1 "cannot open" "$work/missing.png" --codec MJPG
expect_error 2 "four characters" --generate --codec MJPEG
expect_error 2 "kelp codec-roundtrip: --codec is required" --generate
expect_error 2 "kelp codec-roundtrip: --bits: 16 is not one of 24, 32" --generate --codec MJPG --bits 16

[ "$failures" -eq 0 ] && echo "codec CLI: all passed"
exit $((failures > 0))
