#!/usr/bin/env bash
# The loadable module stands alone: files under module/ include only other
# files under module/ (written from the repository root) and the C++ standard
# library, plus the compiler's intrinsics header. Exits 1 and lists every
# include that breaks this.
set -euo pipefail
cd "$(dirname "$0")/.."
bad=$(grep -rnE '^\s*#\s*include' module \
  | grep -vE '#\s*include\s+"module/[^"]+"' \
  | grep -vE '#\s*include\s+<(immintrin\.h|[a-z_]+)>' || true)
if [ -n "$bad" ]; then
  echo "module/ must include only module/ files and the standard library:"
  echo "$bad"
  exit 1
fi
echo "module includes: ok"
