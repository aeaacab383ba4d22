// Text results of the engine to Python objects, filled under the GIL.
#pragma once

#include <cstdint>
#include <string>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include "engine/engine.h"
#include "python/src/text_column.h"

namespace txpython {

namespace py = pybind11;

// Writes rows [begin, begin + batch rows) of the object array `out` from one
// batch's text result: str decoded with the codec, or the bytes as they are
// (`asBytes`); None where the module stored nothing; an empty text where
// the source row is null (`sourceValidity`, over the whole column), where
// the module answers one blank. Throws py::value_error naming the row the
// codec refuses.
void fillText(py::array& out, std::int64_t begin, const txengine::TextResult& text, const std::uint8_t* sourceValidity,
              const Codec& codec, bool asBytes, const std::string& what);

}  // namespace txpython
