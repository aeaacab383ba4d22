#!/usr/bin/env bash
# The README's main job in one run: what the module is, its functions at
# work in a UTF-8 and a single-byte session, then new columns computed over
# the sample CSV files in examples/.
set -euo pipefail
txscan=$(realpath "${1:-build/bin/txscan}")
cd "$(dirname "$0")/.."
show() { printf '\n$ txscan %s\n' "$*"; "$txscan" "$@"; }

show info
show eval 'KFIND("abcabc", "bc")' 'KFIND("abcabc", "bc", -4)' 'KCOUNTX("aAa", "a", "i")'
show eval 'KFIND("Grüße aus Köln", "köln", "i")' 'KCOUNTX("ÄäÄ", "ä", "i")'
show eval 'KFINDC("abc", "cb")' 'KCOUNTC("abcab", "ab", "v")'
show eval 'KSCANX("Wer reitet so spät", -1)' 'CALL KSCANX("Wer reitet so spät", 4, pos, len)'
show eval 'KCOUNTW("one two, three")' 'KFINDW("one two three", "three")'
show eval --encoding ISO-8859-1 'KFIND("abcabc", "bc", 3)' 'KFIND("Köln", "ö")' 'KFIND("abc", "x", "z")'
show eval --encoding Shift_JIS 'KFINDC("東京都", "京")' 'KSCANX("日本語 の テキスト", 3)'
show rng --method MT32 --seed 5489 --form raw32 --count 3

# Each result goes to a file first: `head` closing the pipe early would
# stop the script.
out=$(mktemp)
trap 'rm -f "$out"' EXIT
show_apply() {
    printf '\n$ txscan apply %s | head -5\n' "$*"
    "$txscan" apply --quiet "$@" >"$out"
    head -5 "$out"
}
show_apply examples/people.csv 'surname = KSCANX(name, -1)' 'words = KCOUNTW(comment)' \
    'street = KFIND(address, "street", "i")' '(pos, len) = CALL KSCANX(address, 2, ", ")'
# The Shift_JIS file is read and written as it is; only the display is converted.
printf '\n$ txscan apply --encoding Shift_JIS examples/people-sjis.csv %s | iconv -f SHIFT_JIS -t UTF-8 | head -4\n' \
    "'given = KSCANX(name, 2)' 'digit = KFINDC(address, \"0123456789\")'"
"$txscan" apply --quiet --encoding Shift_JIS examples/people-sjis.csv 'given = KSCANX(name, 2)' \
    'digit = KFINDC(address, "0123456789")' >"$out"
head -4 "$out" | iconv -f SHIFT_JIS -t UTF-8
printf '\n$ txscan apply examples/people.csv -o %s %s   # the summary goes to standard error\n' "$out" \
    "'surname = KSCANX(name, -1)' 'hit = KFIND(comment, \"street\", \"iz\")'"
"$txscan" apply examples/people.csv -o "$out" 'surname = KSCANX(name, -1)' 'hit = KFIND(comment, "street", "iz")'
