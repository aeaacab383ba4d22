// `txscan eval`: evaluates calls of the module's functions in a session of
// the chosen encoding and prints each result, or its status, and the
// messages the call caused.
#include <cmath>
#include <cstdio>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/expression.h"
#include "cli/number_option.h"
#include "host/binder.h"
#include "host/host.h"
#include "cli/terminal_text.h"

namespace txcli {

namespace {

using txhost::Argument;
using txhost::CallResult;

struct EvalSettings {
    std::string encoding = "UTF-8";
    std::vector<std::string> options;
    std::int64_t length = 200;
    std::string modulePath = TXSCAN_MODULE_PATH;
    std::vector<std::string> calls;
};

struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string formatNumber(double value) {
    if (std::isnan(value)) return ".";
    if (std::isfinite(value) && value == std::trunc(value) && std::fabs(value) < 9.0e15) {
        return std::to_string(static_cast<long long>(value));
    }
    char text[32];
    std::snprintf(text, sizeof text, "%.15g", value);
    return text;
}

std::string quoted(const std::string& text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

class Evaluator {
public:
    Evaluator(txhost::Module& module, std::int64_t length, const TerminalText& terminal)
        : module_(module), length_(length), terminal_(terminal) {}

    CallResult run(const Call& call) {
        const int index = functionIndex(call);
        std::vector<Argument> arguments;
        for (std::size_t i = 0; i < call.arguments.size(); ++i) {
            arguments.push_back(argumentValue(call, static_cast<int>(i) + 1, call.arguments[i]));
        }
        txhost::CallSite site(module_, index);
        if (!call.callRoutine && call.function == "KSCANX") site.useFixedResult(length_);
        try {
            return site.call(arguments);
        } catch (const std::invalid_argument& e) {
            throw UsageError(call.function + ": " + e.what());
        }
    }

private:
    int functionIndex(const Call& call) {
        const auto& functions = module_.functions();
        for (const auto& f : functions) {
            const bool routine = f.descriptor->resultKind == txscan::contract::kCallRoutine;
            if (f.name == call.function && routine == call.callRoutine) return f.index;
        }
        for (const auto& f : functions) {
            if (f.name == call.function) {
                throw UsageError(call.callRoutine ? call.function + " is a function, not a call routine"
                                                  : call.function + " is a call routine: write CALL " + call.function);
            }
        }
        throw UsageError("unknown function " + call.function);
    }

    Argument argumentValue(const Call& call, int position, const Expression& e) {
        if (std::holds_alternative<Missing>(e)) return txscan::contract::missingValue();
        if (auto* number = std::get_if<double>(&e)) return *number;
        if (auto* text = std::get_if<std::string>(&e)) return terminal_.toSession(*text);
        if (std::holds_alternative<Name>(e)) {
            if (call.callRoutine && (position == 3 || position == 4)) return 0.0;
            throw UsageError("a name (" + std::get<Name>(e).text + ") may only stand for an output argument of a call routine");
        }
        const Call& nested = *std::get<std::unique_ptr<Call>>(e);
        CallResult inner = run(nested);
        for (const auto& m : inner.messages) nestedMessages_.push_back(m);
        if (inner.status != 0) {
            throw UsageError(nested.source + " failed: " + txhost::statusText(inner.status));
        }
        if (inner.text) return *inner.text;
        if (inner.number) return *inner.number;
        throw UsageError(nested.source + " gave no result");
    }

public:
    std::vector<txhost::Message> nestedMessages_;

private:
    txhost::Module& module_;
    std::int64_t length_;
    const TerminalText& terminal_;
};

void printMessages(const std::vector<txhost::Message>& messages) {
    for (const auto& m : messages) {
        using Source = txhost::Message::Source;
        const char* what = m.source == Source::Note ? "note" : m.source == Source::Error ? "error" : "message";
        if (m.source == Source::LogLine) {
            std::printf("  log: %s\n", m.text.c_str());
        } else {
            std::printf("  %s %d: %s\n", what, m.code, m.text.c_str());
        }
    }
}

// One line per call: the call as written, then its answer.
void printResult(const Call& call, const CallResult& r, const TerminalText& terminal) {
    std::printf("%s = ", call.source.c_str());
    if (r.status != 0 && !r.number && !r.text) {
        std::printf("%s\n", txhost::statusText(r.status).c_str());
        return;
    }
    if (call.callRoutine) {
        auto name = [&](std::size_t i, const char* fallback) {
            if (i < call.arguments.size()) {
                if (auto* n = std::get_if<Name>(&call.arguments[i])) return n->text;
            }
            return std::string(fallback);
        };
        std::printf("%s=%s %s=%s\n", name(2, "position").c_str(), formatNumber(r.position.value_or(0)).c_str(),
                    name(3, "length").c_str(), formatNumber(r.length.value_or(0)).c_str());
    } else if (r.text) {
        std::printf("%s\n", quoted(terminal.fromSession(*r.text)).c_str());
    } else if (r.number) {
        std::printf("%s\n", formatNumber(*r.number).c_str());
    }
    if (r.status != 0) std::printf("  %s\n", txhost::statusText(r.status).c_str());
}

int runEval(const EvalSettings& settings) {
    txhost::SessionOptions options;
    bool known = false;
    for (const auto& name : txhost::availableEncodings()) known = known || name == settings.encoding;
    if (!known) {
        std::cerr << "txscan: unknown encoding " << settings.encoding << " (known:";
        for (const auto& name : txhost::availableEncodings()) std::cerr << " " << name;
        std::cerr << ")\n";
        return kUsageError;
    }
    options.encoding = settings.encoding;
    for (const auto& o : settings.options) {
        const auto eq = o.find('=');
        if (eq == std::string::npos || eq == 0) {
            std::cerr << "txscan: --option wants NAME=VALUE, got " << o << "\n";
            return kUsageError;
        }
        options.options[o.substr(0, eq)] = o.substr(eq + 1);
        options.optionText += (options.optionText.empty() ? "" : " ") + o;
    }
    std::vector<Call> calls;
    try {
        for (const auto& text : settings.calls) calls.push_back(parseCall(text));
    } catch (const SyntaxError& e) {
        std::cerr << "txscan: " << e.what() << "\n";
        return kUsageError;
    }
    try {
        txhost::Session session(options);
        auto module = txhost::Module::load(session, settings.modulePath);
        const TerminalText terminal(settings.encoding);
        for (const auto& call : calls) {
            Evaluator evaluator(*module, settings.length, terminal);
            CallResult r = evaluator.run(call);
            printResult(call, r, terminal);
            printMessages(evaluator.nestedMessages_);
            printMessages(r.messages);
        }
    } catch (const UsageError& e) {
        std::cerr << "txscan: " << e.what() << "\n";
        return kUsageError;
    } catch (const std::exception& e) {
        std::cerr << "txscan: " << e.what() << "\n";
        return kUsageError;
    }
    return 0;
}

}  // namespace

void addEvalCommand(CLI::App& app) {
    auto settings = std::make_shared<EvalSettings>();
    auto* command = app.add_subcommand("eval", "Evaluate calls such as KFIND(\"abcabc\", \"bc\", -4)");
    command->add_option("--encoding", settings->encoding, "Session encoding (UTF-8, ISO-8859-1, windows-1252, "
                                                          "ISO-8859-15, Shift_JIS)");
    // One value per --option, so that the calls after it stay calls.
    command->add_option("--option", settings->options, "System option NAME=VALUE (repeatable)")
        ->allow_extra_args(false);
    addNumberOption<std::int64_t>(command, "--length", settings->length,
                                  "Length of the variable that receives a KSCANX result (at most " +
                                      std::to_string(kMaxResultLength) + " bytes)",
                                  0, kMaxResultLength);
    command->add_option("--module", settings->modulePath, "Path of the module file");
    command->add_option("calls", settings->calls, "Calls to evaluate")->required();
    command->callback([settings] {
        const int code = runEval(*settings);
        if (code != 0) throw CLI::RuntimeError(code);
    });
}

}  // namespace txcli
