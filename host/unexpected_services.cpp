// The functions behind the directory slots the host does not serve. Each slot
// gets a function of its own (one template instance per slot, kept in this
// file because there are kServiceTables x kServiceFunctions of them), so the
// record names the slot the module called instead of crashing.
#include <array>
#include <string>
#include <utility>

#include "host/session_impl.h"

namespace txhost {

using namespace contract;

namespace {

void unexpectedService(int table, int function) {
    Session::Impl* s = activeSession();
    if (s == nullptr) return;
    s->recordServiceCall(table, function, {});
    s->addMessage({Message::Source::Error, kUnexpectedServiceCode, 0, {}, 0, 0,
                   "unexpected service (" + std::to_string(table) + ", " + std::to_string(function) + ")"});
}

// Any signature the module might expect: the integer arguments are ignored
// and the answer is 0.
template <int Slot>
std::uint64_t unexpectedSlot(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t) {
    unexpectedService(Slot / kServiceFunctions, Slot % kServiceFunctions);
    return 0;
}

template <std::size_t... Slots>
const std::array<void*, sizeof...(Slots)>& unexpectedSlots(std::index_sequence<Slots...>) {
    static const std::array<void*, sizeof...(Slots)> slots{reinterpret_cast<void*>(&unexpectedSlot<Slots>)...};
    return slots;
}

}  // namespace

void* unexpectedServiceSlot(int table, int function) {
    static const auto& slots = unexpectedSlots(std::make_index_sequence<kServiceTables * kServiceFunctions>{});
    return slots[static_cast<std::size_t>(table * kServiceFunctions + function)];
}

}  // namespace txhost
