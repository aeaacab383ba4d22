// Text results of the engine to Python objects, filled under the GIL.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "engine/engine.h"
#include "python/src/text_column.h"

namespace txpython {

namespace py = pybind11;

// Results of a call that are equal and short share one object, as pandas'
// CSV reader shares a column's repeated strings: a column of words repeats
// most of them, and a new object costs more than the word took to find.
// A small table keyed by the bytes themselves, so a miss costs one probe.
// The table is the thread's, kept from call to call (clearing and walking
// 128 KB cost a short call more than its rows); a SharedResults holds a
// reference to each object it put there and gives them back, emptying
// just those slots, when it is destroyed (with the GIL held).
class SharedResults {
public:
    SharedResults();
    SharedResults(const SharedResults&) = delete;
    SharedResults& operator=(const SharedResults&) = delete;
    ~SharedResults();
    // A new reference to the object of these bytes, made by `make` (which
    // returns a new reference or null) when the table has none.
    // `readable`: bytes that may be read from `data` (at least `size`).
    template <typename Make>
    PyObject* get(const char* data, Py_ssize_t size, std::int64_t readable, Make make);

    static constexpr Py_ssize_t kLongest = 16;
    static constexpr std::size_t kSlots = 4096;
    struct Slot {
        std::uint64_t head = 0, tail = 0;   // the bytes, zero-padded
        Py_ssize_t size = -1;               // -1: empty
        PyObject* object = nullptr;
    };

private:
    Slot* slots_;
    // Slots this one filled. A call nested in this one on the same thread
    // (from a signal handler) fills and empties its own; one it overwrites
    // stays on this list.
    std::vector<std::uint16_t> filled_;
};

// Writes rows [begin, begin + batch rows) of the object array `out` from one
// batch's text result: str decoded with the codec (built directly when the
// source row was an ASCII str, `asciiRows`, so its result is too), or the
// bytes as they are (`asBytes`); None where the module stored nothing; an
// empty text where the source row is null (`sourceValidity`), where the
// module answers one blank. Both bitmaps are the batch's (bit 0 is row
// `begin`). Throws py::value_error naming the row the codec refuses.
void fillText(py::array& out, std::int64_t begin, const txengine::TextResult& text, const std::uint8_t* asciiRows,
              const std::uint8_t* sourceValidity, const Codec& codec, bool asBytes, SharedResults& shared,
              const std::string& what);

// Rows [0, rows) of `out`, written as bytes, turned into str by the codec:
// a column first met as bytes only turned out to hold str too. Throws as
// fillText does.
void bytesToText(py::array& out, std::int64_t rows, const Codec& codec, const std::string& what);

}  // namespace txpython
