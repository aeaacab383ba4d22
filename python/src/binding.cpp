// txscanmd._core: one Runtime per session encoding (a host Session, the
// module loaded into it, and the row engine's thread pool), and `run`, which
// turns Python columns into engine inputs, evaluates every row with the GIL
// released and hands back numpy arrays.
#include <algorithm>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "engine/engine.h"
#include "host/binder.h"
#include "host/host.h"
#include "python/src/result_arrays.h"
#include "python/src/text_column.h"

namespace py = pybind11;

namespace txpython {
namespace {

struct Runtime {
    Codec codec;
    // Declared in the order they are built; they are destroyed in reverse.
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
    std::unique_ptr<txengine::Engine> engine;
    // Dask's threaded scheduler calls from several threads at once; one run
    // at a time keeps the engine's pool to itself, and it uses every core.
    std::mutex running;

    Runtime(const std::string& modulePath, const std::string& encoding, int threads)
        : codec{encoding, encoding == "UTF-8"},
          session(txhost::SessionOptions{.encoding = encoding}),
          module(txhost::Module::load(session, modulePath)),
          engine(std::make_unique<txengine::Engine>(session, *module, txengine::EngineOptions{.threads = threads})) {}
};

std::shared_ptr<Runtime> openRuntime(const std::string& modulePath, const std::string& encoding, int threads) {
    const std::vector<std::string> offered = txhost::availableEncodings();
    if (std::find(offered.begin(), offered.end(), encoding) == offered.end()) {
        std::string names;
        for (const std::string& name : offered) names += (names.empty() ? "" : ", ") + name;
        throw py::value_error("unknown session encoding \"" + encoding + "\" (the host offers " + names + ")");
    }
    return std::make_shared<Runtime>(modulePath, encoding, threads);
}

// Inputs and the storage behind them, alive until the run is over.
struct PreparedInputs {
    std::vector<txengine::Input> inputs;
    std::vector<OwnedTextColumn> texts;
    std::vector<py::array_t<double, py::array::c_style | py::array::forcecast>> numbers;
    std::vector<std::vector<std::uint8_t>> numberValidity;
};

// Arguments come from the Python layer as (kind, value) pairs, kinds
// "text_column", "number_column", "text", "number" and "absent".
PreparedInputs prepareInputs(const py::list& arguments, std::int64_t rows, const Codec& codec, py::handle na,
                             const std::string& label) {
    PreparedInputs prepared;
    prepared.texts.reserve(arguments.size());
    prepared.numbers.reserve(arguments.size());
    int position = 0;
    for (py::handle argument : arguments) {
        ++position;
        const std::string what = label + ": argument " + std::to_string(position);
        auto pair = argument.cast<py::tuple>();
        const auto kind = pair[0].cast<std::string>();
        py::handle value = pair[1];
        if (kind == "text_column" || kind == "number_column") {
            if (py::len(value) != static_cast<std::size_t>(rows)) {
                throw py::value_error(what + " has " + std::to_string(py::len(value)) + " rows, argument 1 has " +
                                      std::to_string(rows));
            }
        }
        if (kind == "text_column") {
            prepared.texts.push_back(textColumnFrom(py::reinterpret_borrow<py::array>(value), codec, na, what));
            prepared.inputs.push_back(txengine::Input::column(prepared.texts.back().view()));
        } else if (kind == "number_column") {
            auto values = py::array_t<double, py::array::c_style | py::array::forcecast>::ensure(value);
            if (!values || values.ndim() != 1) throw py::value_error(what + ": expected a one-dimensional numeric array");
            prepared.numbers.push_back(values);
            prepared.inputs.push_back(txengine::Input::column(txengine::NumberColumn{values.data(), nullptr}));
        } else if (kind == "text") {
            prepared.inputs.push_back(txengine::Input::constant(textScalar(value, codec, what)));
        } else if (kind == "number") {
            prepared.inputs.push_back(txengine::Input::constant(value.cast<double>()));
        } else {
            prepared.inputs.push_back(txengine::Input::absent());
        }
    }
    return prepared;
}

py::list messageList(const std::vector<txengine::MessageCount>& messages) {
    py::list out;
    for (const txengine::MessageCount& m : messages) {
        py::dict d;
        d["error"] = m.error;
        d["code"] = m.code;
        d["function"] = m.functionName;
        d["character"] = m.character != 0 ? std::string(1, static_cast<char>(m.character)) : std::string();
        d["text"] = m.text;
        d["count"] = m.count;
        d["first_row"] = m.firstRow;
        out.append(d);
    }
    return out;
}

// Evaluates `function` over `rows` rows. Returns a dict with "status" and,
// by result kind, "number", "position" and "length", or "text".
py::dict run(Runtime& runtime, const std::string& label, const std::string& function, bool callRoutine,
             const py::list& arguments, std::int64_t rows, std::int64_t maxLength, bool bytesOut, py::handle na) {
    PreparedInputs prepared = prepareInputs(arguments, rows, runtime.codec, na, label);
    txengine::Result result;
    {
        py::gil_scoped_release released;
        std::lock_guard<std::mutex> lock(runtime.running);
        txengine::Program program = runtime.engine->prepare(
            txengine::ProgramOptions{.function = function, .callRoutine = callRoutine, .maxLength = maxLength});
        result = program.run(prepared.inputs, rows);
    }
    py::dict out;
    out["status"] = statusArray(result.status);
    out["messages"] = messageList(result.messages);
    if (callRoutine) {
        out["position"] = numberArray(result.numbers, result.numberValid);
        out["length"] = numberArray(result.lengths);
    } else if (function == "KSCANX") {
        out["text"] = textArray(result.text, runtime.codec, bytesOut, label);
    } else {
        out["number"] = numberArray(result.numbers, result.numberValid);
    }
    return out;
}

}  // namespace
}  // namespace txpython

PYBIND11_MODULE(_core, m) {
    using namespace txpython;
    m.doc() = "The row engine over the txscanmd module (the package's native part)";
    py::class_<Runtime, std::shared_ptr<Runtime>>(m, "Runtime")
        .def(py::init(&openRuntime), py::arg("module_path"), py::arg("encoding"), py::arg("threads") = 0)
        .def_property_readonly("encoding", [](const Runtime& r) { return r.codec.name; })
        .def_property_readonly("threads", [](const Runtime& r) { return r.engine->threads(); });
    m.def("run", &run, py::arg("runtime"), py::arg("label"), py::arg("function"), py::arg("call_routine"),
          py::arg("arguments"), py::arg("rows"), py::arg("max_length"), py::arg("bytes_out"), py::arg("na"));
    m.def("status_name", &txhost::statusName);
    m.def("status_text", &txhost::statusText);
    m.attr("STATUS_MISSING_START") = txscan::contract::kStatusMissingStart;
    m.def("available_encodings", &txhost::availableEncodings);
}
