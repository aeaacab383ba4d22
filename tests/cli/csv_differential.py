#!/usr/bin/python3
"""txscan apply's CSV reading and writing against Python's csv module and
libcsv (strict), over generated files that hold every RFC 4180 edge case
(quoted separators, doubled quotes, line ends inside quotes, empty and
quoted-empty fields, blank lines, no line end at the end), lines ended by LF,
CRLF or a bare CR in any mix, a byte-order mark, records across the reader's
buffer, and the sample files. Every record txscan writes must read back, in
Python, as the input's record plus the new column; malformed files must be
refused, naming the record, exactly where libcsv refuses them.

    csv_differential.py TXSCAN EXAMPLES_DIR SCRATCH_DIR
"""
import csv
import ctypes
import io
import os
import random
import subprocess
import sys

csv.field_size_limit(1 << 30)
TXSCAN, EXAMPLES, SCRATCH = sys.argv[1], sys.argv[2], sys.argv[3]
os.makedirs(SCRATCH, exist_ok=True)
LINE_ENDS = ["\n", "\r\n", "\r"]
PIECES = ["a", "word", " blank ", "", "x,y", 'say "hi"', '"', "line\nbreak", "cr\ronly", "crlf\r\nend", ",", "é ü",
          "日本", "\\", "tab\there", "'"]
failures = []


def libcsv_records(data):
    """The records libcsv reads in strict mode, or None where it refuses."""
    lib = ctypes.CDLL("libcsv.so.3")
    parser = ctypes.create_string_buffer(512)
    field_cb = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_size_t, ctypes.c_void_p)
    record_cb = ctypes.CFUNCTYPE(None, ctypes.c_int, ctypes.c_void_p)
    space_cb = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_ubyte)
    records, current = [], []
    on_field = field_cb(lambda p, n, _: current.append(ctypes.string_at(p, n) if p else b""))
    on_record = record_cb(lambda c, _: (records.append(list(current)), current.clear()))
    no_blanks = space_cb(lambda c: 0)
    lib.csv_init.argtypes = [ctypes.c_void_p, ctypes.c_ubyte]
    lib.csv_parse.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_size_t, field_cb, record_cb, ctypes.c_void_p]
    lib.csv_parse.restype = ctypes.c_size_t
    lib.csv_fini.argtypes = [ctypes.c_void_p, field_cb, record_cb, ctypes.c_void_p]
    lib.csv_set_space_func.argtypes = [ctypes.c_void_p, space_cb]
    lib.csv_free.argtypes = [ctypes.c_void_p]
    lib.csv_init(parser, 1 | 4)   # CSV_STRICT | CSV_STRICT_FINI
    lib.csv_set_space_func(parser, no_blanks)
    ok = lib.csv_parse(parser, data, len(data), on_field, on_record, None) == len(data)
    ok = ok and lib.csv_fini(parser, on_field, on_record, None) == 0
    lib.csv_free(parser)
    return [[f.decode("latin-1") for f in r] for r in records] if ok else None


def python_records(text, escape=None):
    reader = csv.reader(io.StringIO(text, newline=""), strict=True, escapechar=escape, doublequote=True)
    return [r for r in reader if r]


def quoted(value, escape=None):
    if escape:
        value = value.replace(escape, escape + escape)
        return '"' + value.replace('"', escape + '"' if random.random() < 0.5 else '""') + '"'
    return '"' + value.replace('"', '""') + '"'


def field_text(value, columns, escape=None):
    needs = any(c in value for c in ',"\r\n') or (escape and escape in value) or (columns == 1 and value == "")
    return quoted(value, escape) if needs or random.random() < 0.2 else value


def make_file(rng_seed, records, columns, escape=None):
    random.seed(rng_seed)
    header = [f"c{i}" for i in range(columns)]
    rows = [[random.choice(PIECES) + random.choice(PIECES) for _ in range(columns)] for _ in range(records)]
    out = ["\ufeff" if random.random() < 0.2 else ""]
    for i, row in enumerate([header] + rows):
        out.append(",".join(field_text(v, columns, escape) for v in row))
        if i < len(rows) or random.random() < 0.5:
            out.append(random.choice(LINE_ENDS))
        if random.random() < 0.05 and i < len(rows):
            out.append(random.choice(LINE_ENDS))   # a blank line
    return "".join(out)


def run(path, *options, column="c0"):
    out = path + ".out"
    done = subprocess.run([TXSCAN, "apply", "--quiet", "--threads", "2", *options, path, "-o", out,
                           f"n = KCOUNTW({column})"],
                          capture_output=True)
    return done.returncode, done.stderr.decode("utf-8", "replace"), out


def check_good(name, text, escape=None):
    path = os.path.join(SCRATCH, name)
    data = text.encode("latin-1") if all(ord(c) < 256 for c in text) else text.encode("utf-8")
    with open(path, "wb") as f:
        f.write(data)
    body = data[3:] if data.startswith(b"\xef\xbb\xbf") else data
    expected = python_records(body.decode("latin-1"), escape)
    if escape is None:
        theirs = libcsv_records(body)
        if theirs != expected:
            failures.append(f"{name}: libcsv and Python's csv differ (generator fault)")
            return
    code, err, out = run(path, *(["--escape", escape] if escape else []), column=expected[0][0])
    if code != 0:
        failures.append(f"{name}: exit {code}: {err.strip()}")
        return
    with open(out, "rb") as f:
        got = python_records(f.read().decode("latin-1"), escape)
    if [r[:-1] for r in got] != expected or got[0][-1] != "n":
        first = next((i for i, (a, b) in enumerate(zip(got, expected)) if a[:-1] != b), min(len(got), len(expected)))
        failures.append(f"{name}: record {first + 1} differs: {got[first:first + 1]} != {expected[first:first + 1]}")
    os.remove(out)


# Valid files: many small ones, and one larger than the reader's buffer so
# that records (line ends and quotes included) fall across its edge.
for seed in range(30):
    check_good(f"good{seed}.csv", make_file(seed, random.Random(seed).randint(0, 60), 1 + seed % 4))
check_good("large.csv", make_file(1000, 300000, 3))
for seed in range(10):
    check_good(f"escaped{seed}.csv", make_file(100 + seed, 40, 1 + seed % 3, "\\"), "\\")
for sample in ("people.csv", "people-sjis.csv"):
    with open(os.path.join(EXAMPLES, sample), "rb") as f:
        check_good(sample, f.read().decode("latin-1"))

# Malformed files: one defect in record `at` (the header is record 1).
DEFECTS = ['ab"c', '"ab"c', '"open']
for seed in range(12):
    random.seed(500 + seed)
    columns = 1 + seed % 3
    rows = [",".join(f"v{r}{c}" for c in range(columns)) for r in range(20)]
    at = random.randint(2, 21)
    defect = DEFECTS[seed % 3] if seed % 4 else "x" + ",x" * columns   # the last: one field too many
    if defect == '"open':
        rows = rows[:at - 2] + [defect]
    else:
        rows[at - 2] = defect + "," * (columns - 1)
    text = ",".join(f"c{c}" for c in range(columns)) + "\n" + random.choice(LINE_ENDS).join(rows) + "\n"
    path = os.path.join(SCRATCH, f"bad{seed}.csv")
    with open(path, "w", newline="") as f:
        f.write(text)
    code, err, _ = run(path)
    refused_by_libcsv = libcsv_records(text.encode()) is None
    if code != 2 or f"record {at} (line {at})" not in err or err.count("\n") != 1:
        failures.append(f"bad{seed}.csv: exit {code}, expected record {at} named: {err.strip()}")
    if refused_by_libcsv != (defect in DEFECTS):
        failures.append(f"bad{seed}.csv: libcsv {'refuses' if refused_by_libcsv else 'reads'} it")

for f in failures:
    print(f)
print(f"{len(failures)} failures")
sys.exit(1 if failures else 0)
