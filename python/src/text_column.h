// Text columns made from Python objects for the row engine: str rows in the
// session encoding, bytes rows as they are, None, NaN and pandas' NA as null
// rows. The column owns its bytes, so the engine may run without the GIL.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "engine/engine.h"

namespace txpython {

namespace py = pybind11;

// How str values reach the session encoding and come back: UTF-8 directly,
// any other encoding through Python's codec of the same name.
struct Codec {
    std::string name;   // the session encoding as the host names it
    bool utf8 = true;
};

struct OwnedTextColumn {
    std::vector<std::int64_t> offsets{0};
    std::vector<char> bytes;
    std::vector<std::uint8_t> validity;   // empty when every row holds a value

    txengine::TextColumn view() const;
};

// `items` is a contiguous one-dimensional object array. `na` is pandas' NA
// (or None). `what` names the argument in errors ("kfind: argument 1").
// Throws py::value_error naming the row on a value that is not text or a str
// the codec cannot encode.
OwnedTextColumn textColumnFrom(const py::array& items, const Codec& codec, py::handle na, const std::string& what);

// One scalar as session-encoding bytes (str through the codec, bytes as is).
std::string textScalar(py::handle value, const Codec& codec, const std::string& what);

}  // namespace txpython
