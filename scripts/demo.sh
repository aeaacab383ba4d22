#!/usr/bin/env bash
# The README's main job in one run: what the module is, then its functions
# at work in a UTF-8 and a single-byte session.
set -euo pipefail
txscan=${1:-build/bin/txscan}
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
