// Engine text results to Python objects: one object per row, no copy kept.
#include "python/src/result_arrays.h"

namespace txpython {

void fillText(py::array& out, std::int64_t begin, const txengine::TextResult& text, const std::uint8_t* sourceValidity,
              const Codec& codec, bool asBytes, const std::string& what) {
    const auto rows = static_cast<std::int64_t>(text.offsets.size()) - 1;
    auto** items = static_cast<PyObject**>(out.mutable_data()) + begin;
    for (std::int64_t row = 0; row < rows; ++row) {
        PyObject* item = nullptr;
        const char* data = text.bytes.data() + text.offsets[static_cast<std::size_t>(row)];
        auto size = static_cast<Py_ssize_t>(text.offsets[static_cast<std::size_t>(row + 1)] -
                                            text.offsets[static_cast<std::size_t>(row)]);
        if (!txengine::rowValid(sourceValidity, begin + row)) size = 0;
        if (!txengine::rowValid(text.validity.data(), row)) {
            item = Py_NewRef(Py_None);
        } else if (asBytes) {
            item = PyBytes_FromStringAndSize(data, size);
        } else if (codec.utf8) {
            item = PyUnicode_DecodeUTF8(data, size, "strict");
        } else if (codec.latin1) {
            item = PyUnicode_DecodeLatin1(data, size, "strict");
        } else {
            item = PyUnicode_Decode(data, size, codec.name.c_str(), "strict");
        }
        if (item == nullptr) {
            PyErr_Clear();
            throw py::value_error(what + ", row " + std::to_string(begin + row) + ": the result is not valid " +
                                  codec.name + " text");
        }
        // A fresh object array holds None (or null) in every slot; the reference moves in.
        Py_XDECREF(items[row]);
        items[row] = item;
    }
}

}  // namespace txpython
