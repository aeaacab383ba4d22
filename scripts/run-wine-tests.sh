#!/usr/bin/env bash
# Runs every test program of a Windows build (BUILD_DIR/test_*.exe, beside
# txscanmd.dll) under Wine, headless, and adds up GoogleTest's counts.
# The Wine prefix lives in the build directory, so a clean build starts a
# fresh one (its first start takes a while).
# Usage: run-wine-tests.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:?usage: run-wine-tests.sh BUILD_DIR}" && pwd)
export WINEPREFIX=${WINEPREFIX:-$build/wine-prefix}
export WINEDEBUG=${WINEDEBUG:--all}
# No Mono or Gecko: nothing here needs them, and Wine would offer to fetch them.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=}
export WINEARCH=win64
unset DISPLAY WAYLAND_DISPLAY

wine=$(command -v wine || command -v wine64 || true)
[ -n "$wine" ] || [ ! -x /usr/lib/wine/wine64 ] || wine=/usr/lib/wine/wine64
[ -n "$wine" ] || { echo "run-wine-tests: no wine launcher found" >&2; exit 1; }
wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver64)

shopt -s nullglob
programs=("$build"/test_*.exe)
[ ${#programs[@]} -gt 0 ] || { echo "run-wine-tests: no test programs in $build" >&2; exit 1; }

if [ ! -f "$WINEPREFIX/system.reg" ]; then
    echo "run-wine-tests: creating the Wine prefix $WINEPREFIX"
    "$wine" wineboot --init >/dev/null 2>&1 || true
    "$wineserver" -w
fi

total=0 passed=0 skipped=0 failedPrograms=()
logs="$build/wine-logs"
mkdir -p "$logs"
for program in "${programs[@]}"; do
    name=$(basename "$program" .exe)
    log="$logs/$name.log"
    status=0
    # From the build directory, so the DLL is found beside the program either way.
    (cd "$build" && "$wine" "$program" --gtest_brief=1) >"$log" 2>&1 || status=$?
    tr -d '\r' <"$log" >"$log.tmp" && mv "$log.tmp" "$log"
    ran=$(sed -nE 's/^\[==========\] ([0-9]+) tests? from .* ran\..*/\1/p' "$log" | tail -1)
    ok=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?\..*/\1/p' "$log" | tail -1)
    skip=$(sed -nE 's/^\[  SKIPPED \] ([0-9]+) tests?, listed below:.*/\1/p' "$log" | tail -1)
    total=$((total + ${ran:-0})) passed=$((passed + ${ok:-0})) skipped=$((skipped + ${skip:-0}))
    printf 'run-wine-tests: %-14s %4s ran, %4s passed, %3s skipped, exit %d\n' \
        "$name" "${ran:-?}" "${ok:-0}" "${skip:-0}" "$status"
    if [ "$status" -ne 0 ] || [ -z "$ran" ]; then
        failedPrograms+=("$name")
        cat "$log"
    fi
done
"$wineserver" -w || true

echo "run-wine-tests: $total tests ran under Wine: $passed passed, $skipped skipped, $((total - passed - skipped)) failed"
if [ ${#failedPrograms[@]} -gt 0 ]; then
    echo "run-wine-tests: failed: ${failedPrograms[*]} (logs in $logs)" >&2
    exit 1
fi
