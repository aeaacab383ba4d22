// One Session called from several threads at once, each a task with its own
// call context and call sites, while a second Session in another encoding
// is loaded and called on a thread of its own; a Session and its Module
// still alive when the program exits.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/module_calls.h"

namespace {

using txhost::Argument;
using txhost::Module;
using txhost::Session;

struct Call { const char* function; bool callRoutine; std::vector<Argument> args; };

const Call kCalls[] = {
    {"KFINDC", false, {std::string("The quick brown fox"), std::string("aeiou"), std::string("o")}},
    {"KFIND", false, {std::string("Koeln und Gruesse"), std::string("x"), std::string("z")}},
    {"KFIND", false, {std::string("K\xC3\xB6ln und Gr\xC3\xBC\xC3\x9F" "e"), std::string("\xC3\xBC"), std::string("i")}},
    {"KCOUNTW", false, {std::string("one, two three"), std::string(" ,"), std::string("o")}},
    {"KSCANX", false, {std::string("\xE6\x97\xA5\xE6\x9C\xAC \xE8\xAA\x9E"), 2.0}},
    {"KSCANX", true, {std::string("alpha beta gamma"), -1.0, 0.0, 0.0}},
};

TEST(Threads, SessionsServeATaskPerThread) {
    Session session;
    auto module = Module::load(session);
    std::vector<std::string> expected;
    for (const Call& c : kCalls) expected.push_back(txtest::outcome(module->call(c.function, c.args, c.callRoutine)));
    ASSERT_NE(std::string::npos, expected[1].find("NOTE"));

    std::atomic<int> wrong{0};
    std::vector<std::thread> tasks;
    for (int t = 0; t < 4; ++t) {
        tasks.emplace_back([&] {
            txscan::contract::CallContext* context = session.newCallContext();
            std::vector<std::unique_ptr<txhost::CallSite>> sites;
            for (const Call& c : kCalls) {
                sites.push_back(std::make_unique<txhost::CallSite>(*module, module->functionIndex(c.function, c.callRoutine), 0x48));
                sites.back()->useCallContext(context);
            }
            for (int round = 0; round < 300; ++round) {
                for (std::size_t i = 0; i < sites.size(); ++i) {
                    if (expected[i] != txtest::outcome(sites[i]->call(kCalls[i].args))) ++wrong;
                }
            }
        });
    }
    // Meanwhile a second Session, loaded on a thread of its own, answers in
    // its own encoding: "\xC3\xA9" is two characters before the blank there.
    tasks.emplace_back([&] {
        Session latin1({.encoding = "ISO-8859-1"});
        auto other = Module::load(latin1);
        txhost::CallSite site(*other, other->functionIndex("KSCANX", true));
        for (int i = 0; i < 2000; ++i) wrong += site.call({std::string("\xC3\xA9 b"), 2.0, 0.0, 0.0}).position != 4.0;
    });
    for (std::thread& t : tasks) t.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_EQ(1 + 4 * 300u, session.takeMessages().size());
}

// Constructed before, so destroyed after, every global of the host.
__attribute__((init_priority(101))) std::unique_ptr<Session> gSessionAtExit;
__attribute__((init_priority(101))) std::unique_ptr<Module> gModuleAtExit;

TEST(Threads, SessionAndModuleMayOutliveTheHostsGlobals) {
    gSessionAtExit = std::make_unique<Session>();
    gModuleAtExit = Module::load(*gSessionAtExit);
    EXPECT_EQ(std::optional<double>(2.0), gModuleAtExit->call("KFIND", {std::string("abc"), std::string("b")}).number);
}

}  // namespace
