// The row engine's results as numpy arrays: numbers as float64 with NaN
// where nothing (or the missing value) was stored, text as an object array of
// str (or bytes) with None for rows that received no text.
#pragma once

#include <cstdint>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "engine/engine.h"
#include "python/src/text_column.h"

namespace txpython {

namespace py = pybind11;

py::array_t<double> numberArray(const std::vector<double>& values, const std::vector<std::uint8_t>& valid);

// Every NaN, the module's missing value among them, becomes the plain NaN.
py::array_t<double> numberArray(const std::vector<double>& values);

py::array_t<std::int32_t> statusArray(const std::vector<std::int32_t>& status);

// `asBytes`: the session-encoding bytes as they are; otherwise str decoded
// with the codec. Throws py::value_error naming the row the codec refuses.
py::array textArray(const txengine::TextResult& text, const Codec& codec, bool asBytes, const std::string& what);

}  // namespace txpython
