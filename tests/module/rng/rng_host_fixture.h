// A host session with the module bound in-process, for tests that call the
// random library's routines directly, and helpers to read what it logged.
#pragma once

#include <gtest/gtest.h>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "host/host.h"
#include "host/rng_services.h"
#include "module/frame/exports.h"
#include "module/rng/method.h"

namespace rngtest {

using txhost::Message;

// What the processor itself says, independent of the host's record.
inline bool processorHasRdrand() {
#if defined(__x86_64__) || defined(__i386__)
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & (1u << 30)) != 0;
#else
    return false;
#endif
}

class RngHostTest : public ::testing::Test {
protected:
    explicit RngHostTest(txhost::SessionOptions options = {})
        : session(std::move(options)), module(txhost::Module::attach(session, &mcn_main, &tkvercn1)) {}

    txhost::RngServices& services() { return txhost::rngServices(session); }
    void setText(std::string_view name, std::string_view text) { session.setSetting(name, text); }
    // Shows every message of the library (informational ones included).
    void showAllMessages() { setText("OSENV.QIX_RNG_MESSAGES", "all"); }

    // Everything logged or issued since the last call.
    std::vector<Message> messages() { return session.takeMessages(); }
    std::vector<std::string> logLines(int level) {
        std::vector<std::string> lines;
        for (const Message& m : messages())
            if (m.source == Message::Source::LogLine && m.kind == level) lines.push_back(m.text);
        return lines;
    }
    std::vector<Message> catalogued() {
        std::vector<Message> issued = messages();
        std::erase_if(issued, [](const Message& m) { return m.source != Message::Source::Catalogued; });
        return issued;
    }
    std::vector<std::uint32_t> cataloguedCodes() {
        std::vector<std::uint32_t> codes;
        for (const Message& m : catalogued()) codes.push_back(static_cast<std::uint32_t>(m.code));
        return codes;
    }

    txhost::Session session;
    std::unique_ptr<txhost::Module> module;
};

// A method record and a state area as a stream holds them.
struct MethodUnderTest {
    txscan::rng::RngMethod method{};
    alignas(16) unsigned char state[2512]{};

    explicit MethodUnderTest(txscan::rng::FillRoutine fill) { fill(&method); }
    const txscan::rng::RngOperations& ops() const { return method.ops; }
    void* s() { return state; }
    std::uint64_t next64() { return method.ops.next64(state); }
    std::uint32_t next32() { return method.ops.next32(state); }
    std::vector<std::uint64_t> draw(int n) {
        std::vector<std::uint64_t> out;
        for (int i = 0; i < n; ++i) out.push_back(next64());
        return out;
    }
    // Word k of the state read as Word.
    template <typename Word>
    Word word(int k) const {
        Word w;
        std::memcpy(&w, state + sizeof(Word) * static_cast<std::size_t>(k), sizeof w);
        return w;
    }
};

}  // namespace rngtest
