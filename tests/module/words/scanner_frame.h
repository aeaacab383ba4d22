// Test support: runs the word scanner directly (modes 1 and 2) on an
// ArgumentFrame laid out by hand, in a session whose module is linked in.
#pragma once

#include <memory>
#include <vector>

#include "tests/module/charset/frame_builder.h"
#include "host/host.h"
#include "module/frame/encoding_ops.h"
#include "module/frame/exports.h"
#include "module/words/word_scanner.h"

namespace wordtest {

// A session with the module linked into the test program, so that its
// internal routines can be called.
struct InProcess {
    txhost::Session session;
    std::unique_ptr<txhost::Module> module;

    explicit InProcess(const char* encoding) : session(txtest::sessionOptions(encoding)) {
        module = txhost::Module::attach(session, &mcn_main, &tkvercn1);
    }

    struct Answer {
        std::int32_t status;
        double number;
    };
    // Mode 1 (count) or 2 (find) with the given roles.
    Answer scan(const std::vector<txhost::Argument>& arguments, const txscan::ArgumentRoles& roles,
                std::int32_t mode) {
        txtest::FrameBuilder f(arguments);
        double number = -12345.0;
        const std::int32_t status =
            txscan::scanWords(&f.frame, &number, session.encodingHandle(), 0, &roles, mode, nullptr);
        return {status, number};
    }
};

// KCOUNTW's roles: source 1, delimiters 2, modifiers 3 when given.
inline txscan::ArgumentRoles countRoles(std::size_t argCount) {
    txscan::ArgumentRoles r{};
    r.source = 1;
    if (argCount >= 2) r.delimiters = 2;
    if (argCount >= 3) r.modifiers = 3;
    return r;
}

// KFINDW's roles for source, word [, delimiters [, modifiers]] (no start).
inline txscan::ArgumentRoles findRoles(std::size_t argCount) {
    txscan::ArgumentRoles r{};
    r.source = 1;
    r.second = 2;
    if (argCount >= 3) r.delimiters = 3;
    if (argCount >= 4) r.modifiers = 4;
    return r;
}

}  // namespace wordtest
