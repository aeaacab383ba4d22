#!/usr/bin/python3
"""Writes a loadable DuckDB extension: the linked library followed by the
512-byte footer DuckDB reads before it loads a file (eight 32-byte fields,
stored last field first, then 256 bytes of signature, empty here since the
extension is unsigned and loads with allow_unsigned_extensions)."""
import argparse
import shutil

FIELD = 32


def field(text: str) -> bytes:
    data = text.encode()
    if len(data) > FIELD:
        raise SystemExit(f"append_metadata: {text!r} is longer than {FIELD} bytes")
    return data.ljust(FIELD, b"\0")


def main() -> None:
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("extension")
    parser.add_argument("--platform", required=True)        # e.g. linux_amd64
    parser.add_argument("--c-api-version", required=True)   # the C API the entry asks for, e.g. v1.2.0
    parser.add_argument("--extension-version", required=True)
    args = parser.parse_args()
    # Field 1 is the footer's format ("4"); for an extension on the C API,
    # field 3 holds the C API version where others hold DuckDB's, and field
    # 5 the ABI type that tells DuckDB so.
    fields = ["4", args.platform, args.c_api_version, args.extension_version, "C_STRUCT", "", "", ""]
    temporary = args.extension + ".part"
    shutil.copyfile(args.library, temporary)
    with open(temporary, "ab") as out:
        for text in reversed(fields):
            out.write(field(text))
        out.write(bytes(256))
    shutil.move(temporary, args.extension)


if __name__ == "__main__":
    main()
