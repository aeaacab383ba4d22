// Columns of Python objects read for the row engine in one pass: str rows
// in the session encoding, bytes rows as they are, None, NaN and pandas' NA
// as null rows, or numbers. Text is viewed where it lies whenever its bytes
// already are the session's (ASCII str for an ASCII-compatible encoding,
// one-byte str for ISO-8859-1, bytes, a str's own UTF-8 copy); only the
// other rows are transcoded during the same pass, into an arena of the calling thread
// kept at its largest for the thread's next calls. Nothing is
// left behind in the caller's objects.
//
// The views point into the objects, so the column must stay alive and
// unchanged until the engine is done with it: the package holds the array
// for the length of the call.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "engine/engine.h"

namespace txpython {

namespace py = pybind11;

// How str values reach the session encoding and come back.
struct Codec {
    std::string name;           // the session encoding as the host names it
    bool utf8 = true;
    bool latin1 = false;        // ISO-8859-1: every one-byte str is already its bytes
    bool asciiSame = true;      // ASCII str encode to themselves (checked with Python's codec)
};

Codec codecFor(const std::string& encoding);

// One object column as the engine takes it.
struct ObjectColumn {
    std::int64_t rows = 0;       // rows read
    std::int64_t textRows = 0, bytesRows = 0;   // str and bytes among them
    bool numeric = false;        // numbers and nulls only: `values` holds them (NaN for null)
    txengine::TextViewColumn text{};
    // A bit per row (as validity), set where the row is a str of ASCII
    // characters: its results are ASCII too, known without reading it again.
    const std::uint8_t* asciiRows = nullptr;
    std::vector<double> values;
};

// Where a read of some of a column's rows stops: after `rows` rows, or on
// the first multiple of 8 rows past `text` bytes of text (in place or
// transcoded) or past `transcoded` bytes transcoded.
struct RowLimits {
    std::int64_t rows = INT64_MAX;
    std::size_t text = SIZE_MAX;
    std::size_t transcoded = SIZE_MAX;
};

// `items` is a contiguous one-dimensional object array, of which rows from
// `begin` on are read, as far as `limits` let. The column's views and
// bitmaps are of those rows (their first is `begin`). `slot` picks the
// calling thread's buffers (one set per argument position), which the next
// read of the slot reuses. `na` is pandas' NA. `what` names the argument in
// errors ("kfind: argument 1"). Throws py::value_error naming the row (in
// the whole column) on a value that is neither text, a number nor null, on
// text mixed with numbers, and on a str the codec cannot encode.
ObjectColumn readObjectColumn(const py::array& items, const Codec& codec, py::handle na, int slot,
                              const std::string& what, std::int64_t begin = 0, const RowLimits& limits = {});

// One scalar as session-encoding bytes (str through the codec, bytes as is).
std::string textScalar(py::handle value, const Codec& codec, const std::string& what);

}  // namespace txpython
