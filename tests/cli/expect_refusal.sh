#!/usr/bin/env bash
# expect_refusal.sh REGEX PROGRAM ARGS...: passes when the program exits
# with code 2, prints nothing on standard output and exactly one line on
# standard error, and that line matches REGEX (grep -E).
pattern="$1"
shift
err_file="$(mktemp)"
out="$("$@" 2>"$err_file")"
code=$?
err="$(cat "$err_file")"
rm -f "$err_file"
lines=$(printf '%s\n' "$err" | wc -l)
if [ "$code" = 2 ] && [ -z "$out" ] && [ "$lines" = 1 ] && printf '%s' "$err" | grep -Eq -- "$pattern"; then
  exit 0
fi
printf 'exit code %s, stdout:\n%s\nstderr:\n%s\nexpected one line matching: %s\n' "$code" "$out" "$err" "$pattern"
exit 1
