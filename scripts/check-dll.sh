#!/usr/bin/env bash
# Checks the module as the host system meets it on Windows: a PE32+ x86-64
# DLL whose export table holds exactly mcn_main and tkvercn1, by name and
# nothing else, and which imports only DLLs that every Windows system has
# (no C++ runtime, libgcc or winpthread DLLs beside it).
# Usage: check-dll.sh path/to/txscanmd.dll   (OBJDUMP overrides the tool)
set -euo pipefail

dll=${1:?usage: check-dll.sh path/to/txscanmd.dll}
objdump=${OBJDUMP:-x86_64-w64-mingw32-objdump}

fail() {
    echo "check-dll: $dll: $*" >&2
    exit 1
}

[ -f "$dll" ] || fail "no such file"
dump=$("$objdump" -p "$dll") || fail "$objdump cannot read it"

grep -q 'file format pei-x86-64' <<<"$dump" || fail "not an x86-64 PE image"
grep -qE '^Magic[[:space:]]+020b' <<<"$dump" || fail "not PE32+"
awk '/^Characteristics/{c=1; next} c && /^$/{exit} c' <<<"$dump" | grep -qx $'\tDLL' || fail "not flagged as a DLL"

# Every entry of the export address table, and the names that point into it.
addresses=$(awk '/^Export Address Table -- Ordinal Base/{t=1; next} t && /^$/{exit} t && /Export RVA|Forwarder RVA/' <<<"$dump" | wc -l)
names=$(awk '/^\[Ordinal\/Name Pointer\] Table/{t=1; next} t && /^$/{exit} t {print $NF}' <<<"$dump" | sort | tr '\n' ' ')
[ "$names" = "mcn_main tkvercn1 " ] || fail "exports by name '${names% }'; it must export exactly mcn_main and tkvercn1"
[ "$addresses" -eq 2 ] || fail "$addresses entries in the export address table; only the two named exports may be there"

# Imports: the system's own DLLs only.
imports=$(awk '/DLL Name:/{print $3}' <<<"$dump")
[ -n "$imports" ] || fail "imports nothing (not even KERNEL32.dll): not a linked DLL"
for name in $imports; do
    case "${name,,}" in
        kernel32.dll | msvcrt.dll | ucrtbase.dll | api-ms-win-*.dll | user32.dll | advapi32.dll | ntdll.dll | \
            bcrypt.dll | ws2_32.dll | shell32.dll | ole32.dll) ;;
        *) fail "imports $name, which is not a Windows system DLL (link it statically)" ;;
    esac
done

echo "check-dll: $dll: PE32+ x86-64 DLL; exports: mcn_main tkvercn1; imports: $(tr '\n' ' ' <<<"$imports")"
