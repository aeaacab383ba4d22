#!/bin/sh
# The extension in the stock sqlite3 shell: `.load` by its bare name, then a
# query over every function. Usage: shell_test.sh EXTENSION_WITHOUT_SUFFIX
set -eu
got=$(sqlite3 :memory: ".load $1" "SELECT kfind('Grüße aus Köln', 'köln', 'i'), kcountx('abab', 'b'),
  kfindc('abc', 'cb'), kcountc('abc', 'ab'), kcountw('a b c'), kfindw('a b c', 'c'), kscanx('a b c', -1),
  kscanx_position('one two', 2), kscanx_length('one two', 2);")
[ "$got" = "11|2|2|2|3|5|c|5|3" ] || { echo "unexpected: $got"; exit 1; }
if sqlite3 :memory: ".load $1" "SELECT kscanx('a b', 'x');" 2>/dev/null; then echo "bad argument accepted"; exit 1; fi
