// What the module benchmarks share: a loaded module per session encoding,
// and a call site whose frame points at caller-owned values, so that the
// entry routine can be timed alone. The first call goes through the host,
// so that caches and the environment come from its pools.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "host/host.h"

namespace txbench {

using namespace txscan::contract;

struct Harness {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
    explicit Harness(const char* encoding) : session(txhost::SessionOptions{.encoding = encoding}) {
        module = txhost::Module::load(session);
    }
};

inline Harness& harness(const std::string& encoding) {
    static std::map<std::string, std::unique_ptr<Harness>> harnesses;
    auto& h = harnesses[encoding];
    if (!h) h = std::make_unique<Harness>(encoding.c_str());
    return *h;
}

struct DirectCall {
    std::unique_ptr<txhost::CallSite> site;
    EntryRoutine entry;
    std::vector<std::string> texts;
    StringValue strings[6]{};
    double numbers[6]{};
    std::string resultBuffer = std::string(200, ' ');
    StringValue result{200, 0, nullptr, nullptr, 200};

    DirectCall(txhost::Module& module, const char* function, bool callRoutine, std::uint8_t siteKind,
               std::vector<txhost::Argument> arguments) {
        const int index = module.functionIndex(function, callRoutine);
        site = std::make_unique<txhost::CallSite>(module, index, siteKind);
        entry = module.functions()[static_cast<std::size_t>(index)].entry;
        site->call(arguments);
        ArgumentFrame& frame = site->frame();
        texts.resize(arguments.size());
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            if (const auto* text = std::get_if<std::string>(&arguments[i])) {
                texts[i] = *text;
                const auto n = static_cast<std::int64_t>(texts[i].size());
                strings[i] = {n, n, texts[i].data(), nullptr, n};
                frame.args[i].value = &strings[i];
            } else if (const auto* number = std::get_if<double>(&arguments[i])) {
                numbers[i] = *number;
                frame.args[i].value = &numbers[i];
            }
        }
        result.data = resultBuffer.data();
    }
    double number() {
        double value = 0;
        entry(&site->frame(), &value);
        return value;
    }
    std::string_view text() {
        entry(&site->frame(), &result);
        return {result.data, static_cast<std::size_t>(result.length)};
    }
    double position() {
        entry(&site->frame(), nullptr);
        return numbers[2];
    }
};

}  // namespace txbench
