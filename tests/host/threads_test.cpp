// One Session called from several threads at once, each a task with its own
// call context and call sites; two Sessions in two threads; a Session and
// its Module still alive when the program exits.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace {

using txhost::Argument;
using txhost::Module;
using txhost::Session;

struct Call {
    const char* function;
    bool callRoutine;
    std::vector<Argument> args;
};

const Call kCalls[] = {
    {"KFINDC", false, {std::string("The quick brown fox"), std::string("aeiou"), std::string("o")}},
    {"KFIND", false, {std::string("Koeln und Gruesse"), std::string("x"), std::string("z")}},
    {"KFIND", false, {std::string("K\xC3\xB6ln und Gr\xC3\xBC\xC3\x9F" "e"), std::string("\xC3\xBC"), std::string("i")}},
    {"KCOUNTW", false, {std::string("one, two three"), std::string(" ,"), std::string("o")}},
    {"KSCANX", false, {std::string("\xE6\x97\xA5\xE6\x9C\xAC \xE8\xAA\x9E"), 2.0}},
    {"KSCANX", true, {std::string("alpha beta gamma"), -1.0, 0.0, 0.0}},
};

bool sameResult(const txhost::CallResult& a, const txhost::CallResult& b) {
    if (a.status != b.status || a.number != b.number || a.text != b.text || a.position != b.position ||
        a.length != b.length || a.messages.size() != b.messages.size()) {
        return false;
    }
    for (std::size_t i = 0; i < a.messages.size(); ++i) {
        if (a.messages[i].code != b.messages[i].code || a.messages[i].text != b.messages[i].text) return false;
    }
    return true;
}

TEST(Threads, OneSessionServesATaskPerThread) {
    Session session;
    auto module = Module::load(session);
    std::vector<txhost::CallResult> expected;
    for (const Call& c : kCalls) expected.push_back(module->call(c.function, c.args, c.callRoutine));
    ASSERT_EQ(1u, expected[1].messages.size());

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
                    if (!sameResult(expected[i], sites[i]->call(kCalls[i].args))) ++wrong;
                }
            }
        });
    }
    for (std::thread& t : tasks) t.join();
    EXPECT_EQ(0, wrong.load());
    EXPECT_EQ(1 + 4 * 300u, session.takeMessages().size());
}

TEST(Threads, TwoSessionsInTwoThreadsAnswerInTheirOwnEncodings) {
    txhost::SessionOptions latin1;
    latin1.encoding = "ISO-8859-1";
    Session sessions[] = {Session(), Session(latin1)};
    const double positions[] = {3.0, 4.0};   // "\xC3\xA9 b": one character or two before the blank
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int s = 0; s < 2; ++s) {
        threads.emplace_back([&, s] {
            auto module = Module::load(sessions[s]);
            txhost::CallSite site(*module, module->functionIndex("KSCANX", true));
            for (int i = 0; i < 2000; ++i) {
                if (site.call({std::string("\xC3\xA9 b"), 2.0, 0.0, 0.0}).position != positions[s]) ++wrong;
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(0, wrong.load());
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
