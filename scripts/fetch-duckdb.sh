#!/bin/sh
# Fetches DuckDB's official builds from the npm registry into DEST (no node
# code runs): libduckdb.so from the Node bindings package, and the C API
# headers (duckdb.h, duckdb_extension.h) from the older duckdb package, the
# last one that ships them. The versions are the ones the extension and its
# tests were tried with; the extension asks for C API v1.2.0, which every
# later DuckDB loads.
set -eu
LIBRARY_PACKAGE=@duckdb/node-bindings-linux-x64@1.5.6-r.1
HEADER_PACKAGE=duckdb@1.4.4

dest=$1
[ -f "$dest/lib/libduckdb.so" ] && [ -f "$dest/include/duckdb_extension.h" ] && exit 0
command -v npm >/dev/null 2>&1 || { echo "fetch-duckdb: npm is not installed" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$work" && npm pack --ignore-scripts --silent "$LIBRARY_PACKAGE" "$HEADER_PACKAGE" >/dev/null)
mkdir -p "$work/lib" "$work/headers"
tar -xzf "$work"/duckdb-node-bindings-linux-x64-*.tgz -C "$work/lib" package/libduckdb.so
tar -xzf "$work"/duckdb-[0-9]*.tgz -C "$work/headers" \
  package/src/duckdb/src/include/duckdb.h package/src/duckdb/src/include/duckdb_extension.h
mkdir -p "$dest/lib" "$dest/include"
cp "$work/headers/package/src/duckdb/src/include/duckdb.h" \
   "$work/headers/package/src/duckdb/src/include/duckdb_extension.h" "$dest/include/"
cp "$work/lib/package/libduckdb.so" "$dest/lib/"
echo "fetch-duckdb: $LIBRARY_PACKAGE (libduckdb.so) and $HEADER_PACKAGE (C API headers) in $dest"
