// The Engine over a loaded module and the Programs it prepares.
#include <stdexcept>
#include <thread>

#include "engine/engine_impl.h"

namespace txengine {

using namespace txscan::contract;

Input Input::column(TextColumn column) { return {.kind = Kind::Text, .text = column}; }
Input Input::column(TextViewColumn column) { return {.kind = Kind::TextViews, .views = column}; }
Input Input::column(NumberColumn column) { return {.kind = Kind::Number, .number = column}; }
Input Input::constant(std::string_view text) { return {.kind = Kind::ConstantText, .constantText = std::string(text)}; }
Input Input::constant(double number) { return {.kind = Kind::ConstantNumber, .constantNumber = number}; }
Input Input::absent() { return Input{}; }

Engine::Engine(txhost::Session& session, txhost::Module& module, EngineOptions options)
    : impl_(std::make_unique<Impl>()) {
    if (&module.session() != &session) throw std::invalid_argument("engine: the module belongs to another Session");
    if (options.rowsPerTask < 1) throw std::invalid_argument("engine: rowsPerTask must be at least 1");
    int threads = options.threads;
    if (threads <= 0) threads = static_cast<int>(std::thread::hardware_concurrency());
    if (threads <= 0) threads = 1;
    // Tasks start on a byte of the validity bitmaps, so no two workers
    // write one byte.
    options.rowsPerTask = (options.rowsPerTask + 7) / 8 * 8;
    options.threads = threads;
    impl_->session = &session;
    impl_->module = &module;
    impl_->options = options;
    for (int w = 0; w < threads; ++w) impl_->contexts.push_back(session.newCallContext());
    impl_->pool = std::make_unique<WorkerPool>(threads);
}

Engine::~Engine() = default;

int Engine::threads() const { return impl_->pool->workers(); }

Program Engine::prepare(const ProgramOptions& options) {
    const txhost::Binding binding(*impl_->module, options.function, options.callRoutine);
    if (binding.resultKind() == kCharacterResult && options.maxLength < 0) {
        throw std::invalid_argument(binding.name() + ": maxLength must not be negative");
    }
    auto impl = std::make_unique<Program::Impl>(Program::Impl{impl_.get(), binding, options, {}, 0});
    for (int w = 0; w < threads(); ++w) {
        auto lane = std::make_unique<CallLane>(impl->binding, impl_->contexts[static_cast<std::size_t>(w)]);
        if (binding.resultKind() == kCharacterResult) {
            lane->resultBuffer.resize(static_cast<std::size_t>(options.maxLength));
        }
        impl->lanes.push_back(std::move(lane));
    }
    return Program(std::move(impl));
}

Program::Program(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Program::~Program() = default;
Program::Program(Program&&) noexcept = default;
Program& Program::operator=(Program&&) noexcept = default;

}  // namespace txengine
