// The Binding's checks and the words for statuses and messages; the per-call
// binding itself is inline in binder.h.
#include "host/binder.h"

#include <cstdio>
#include <stdexcept>

#include "host/session_impl.h"

namespace txhost {

Binding::Binding(const Module& module, std::string_view name, bool callRoutine)
    : Binding(module.function(name, callRoutine)) {}

Binding::Binding(const FunctionInfo& function)
    : function_(&function), resultKind_(function.descriptor->resultKind), positions_{} {
    for (int input = 1; input <= contract::kMaxArguments; ++input) {
        positions_[input] = callRoutine() && input >= kFirstOutput ? input + outputs() : input;
    }
}

std::string Binding::countProblem(int inputs) const {
    if (inputs >= minInputs() && inputs <= maxInputs() && inputs + outputs() <= contract::kMaxArguments) return {};
    return name() + " takes " + std::to_string(minInputs()) + " to " + std::to_string(maxInputs()) + " inputs, not " +
           std::to_string(inputs);
}

std::string Binding::kindProblem(int input, ValueKind kind) const {
    if (kind == ValueKind::Number && !takesNumber(input)) {
        return name() + ": argument " + std::to_string(input) + " must be character";
    }
    if (kind == ValueKind::Text && !takesText(input)) {
        return name() + ": argument " + std::to_string(input) + " must be numeric";
    }
    return {};
}

void Binding::requireCount(int inputs) const {
    if (std::string problem = countProblem(inputs); !problem.empty()) throw std::invalid_argument(problem);
}

void Binding::requireKind(int input, ValueKind kind) const {
    if (std::string problem = kindProblem(input, kind); !problem.empty()) throw std::invalid_argument(problem);
}

BoundFrame::BoundFrame(const Binding& binding, contract::CallContext* context, std::uint8_t siteKind)
    : binding_(&binding), entry_(binding.entry()) {
    frame_.callContext = context;
    frame_.siteKind = siteKind;
}

BoundFrame::~BoundFrame() {
    // The module takes the set from the frame's call context's pool; a
    // frame moved to another context since keeps it there, and a frame
    // without one used the task's: those sets stay with their pools.
    auto* context = static_cast<contract::CallContext*>(frame_.callContext);
    if (frame_.setCache != nullptr && context != nullptr && context->pool != nullptr) {
        Pool::from(context->pool)->release(frame_.setCache);
    }
}

void BoundFrame::start(int inputs) {
    for (contract::ArgumentSlot& s : frame_.args) s = {};
    frame_.argCount = inputs + binding_->outputs();
    primeOutputs();
}

// ---------------------------------------------------------------- words

namespace {

struct StatusWord {
    std::int32_t status;
    const char* name;
};

constexpr StatusWord kStatusWords[] = {
    {contract::kStatusOk, "ok"},
    {contract::kStatusMissingStart, "missing start"},
    {contract::kStatusInvalidArgument, "invalid argument"},
    {contract::kStatusNoMemory, "out of memory"},
};

}  // namespace

std::string statusName(std::int32_t status) {
    for (const StatusWord& word : kStatusWords) {
        if (word.status == status) return word.name;
    }
    char text[32];
    std::snprintf(text, sizeof text, "status 0x%X", static_cast<unsigned>(status));
    return text;
}

std::string statusText(std::int32_t status) {
    for (const StatusWord& word : kStatusWords) {
        if (word.status != status) continue;
        char text[64];
        std::snprintf(text, sizeof text, "%s (status 0x%X)", word.name, static_cast<unsigned>(status));
        return text;
    }
    return statusName(status);
}

std::string messageText(const MessageEvent& event) {
    if (event.text != nullptr) return *event.text;
    if (event.source == Message::Source::Note) {
        return formatNote(event.code, event.functionName != nullptr ? event.functionName : "", event.character);
    }
    return formatError(event.code, event.detail);
}

}  // namespace txhost
