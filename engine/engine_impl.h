// What an Engine and its Programs hold: the worker pool with one call
// context per worker, and per Program one CallLane per worker.
#pragma once

#include <memory>
#include <vector>

#include "engine/call_lane.h"
#include "engine/engine.h"
#include "engine/worker_pool.h"
#include "host/binder.h"
#include "host/host.h"

namespace txengine {

struct Engine::Impl {
    txhost::Session* session = nullptr;
    txhost::Module* module = nullptr;
    EngineOptions options;
    std::unique_ptr<WorkerPool> pool;
    // Worker w calls in contexts[w]: its own pool and slots (the function
    // environment is built once per context), owned by the session.
    std::vector<txscan::contract::CallContext*> contexts;
};

struct Program::Impl {
    Engine::Impl* engine = nullptr;
    txhost::Binding binding;
    ProgramOptions options;
    std::vector<std::unique_ptr<CallLane>> lanes;   // one per worker
    std::int64_t rowsBefore = 0;                    // rows of earlier runs, for MessageCount::firstRow
};

}  // namespace txengine
