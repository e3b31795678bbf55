#!/usr/bin/env bash
# kelp config: values written and read back as text, and clear errors with non-zero
# exit codes on bad input. Runs on a settings directory of its own.
set -uo pipefail
kelp=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export XDG_CONFIG_HOME=$work/home
unset KELP_SITE_FILE
failures=0

fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# expect CODE STDOUT ARGS...: runs kelp ARGS and compares exit code and output.
expect() {
    local code=$1 out=$2
    shift 2
    local got rc
    got=$("$kelp" "$@" 2>"$work/err")
    rc=$?
    [ "$rc" -eq "$code" ] || fail "kelp $* exited $rc, expected $code ($(cat "$work/err"))"
    [ "$got" = "$out" ] || fail "kelp $* printed '$got', expected '$out'"
}

# Every type, written as text and read back as the same text.
while IFS='|' read -r type value shown; do
    expect 0 "" config set Types "$type" "$value" --type "$type"
    expect 0 "$shown" config get types "${type^^}"
done <<'TABLE'
int|-2147483648|-2147483648
int64|-9223372036854775808|-9223372036854775808
uint|0xFFFFFFFF|4294967295
uint64|18446744073709551615|18446744073709551615
dword|7|7
bool|off|false
color|0x00FF8000|0x00FF8000
string|Grüße, 日本|Grüße, 日本
stringa|plain bytes|plain bytes
path|/srv/share/kelp.vst|/srv/share/kelp.vst
guid|{0123abcd-4567-89ab-cdef-0123456789ab}|{0123ABCD-4567-89AB-CDEF-0123456789AB}
bin|00ff7f|00ff7f
rect|-1,2,-3,4|-1,2,-3,4
font|-13,0,0,0,700,1,0,0,0,0,0,0,34,Sans, Bold|-13,0,0,0,700,1,0,0,0,0,0,0,34,Sans, Bold
TABLE

expect 0 "" config set KELPCFG UseSSE 0 --type bool
expect 0 "KELPCFG\\UseSSE (bool) = false" config list kelpcfg
[ "$("$kelp" config list | wc -l)" -eq 15 ] || fail "list does not show all 15 settings"
[ -f "$XDG_CONFIG_HOME/kelp/KELP.VST" ] || fail "the settings file is not where it belongs"

# Bad input: usage errors exit 2, missing settings exit 1, and nothing is written.
expect 2 "" config set Types int 12x --type int
expect 2 "" config set Types int 2147483648 --type int
expect 2 "" config set Types uint -1 --type uint
expect 2 "" config set Types bool maybe --type bool
expect 2 "" config set Types guid "{0123}" --type guid
expect 2 "" config set Types bin abc --type bin
expect 2 "" config set Types x 1 --type float
expect 2 "" config set Types x 1 --type
expect 2 "" config set Types x
expect 2 "" config get Types
expect 2 "" config frobnicate
expect 0 "-2147483648" config get Types int
expect 1 "" config get Types missing
expect 1 "" config delete Types missing
expect 0 "" config delete Types int
expect 1 "" config get Types int
expect 0 "" config delete types
expect 1 "" config delete Types
expect 0 "KELPCFG\\UseSSE (bool) = false" config list

# A file that is not a settings store is reported, and left as it was.
printf 'not a settings store' >"$XDG_CONFIG_HOME/kelp/KELP.VST"
expect 1 "" config list
expect 1 "" config set A b c
[ "$(cat "$XDG_CONFIG_HOME/kelp/KELP.VST")" = "not a settings store" ] || fail "file changed"

[ "$failures" -eq 0 ] && echo "kelp config: all checks passed"
exit $((failures > 0))
