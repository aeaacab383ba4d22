// The eight function descriptors and the two tables built from them for the
// host: descriptor i pairs with entry routine i.
#include "module/frame/function_table.h"

#include <cstring>

#include "module/frame/entries.h"
#include "module/abi/function_table.h"
#include "module/frame/host_call.h"

namespace txscan {

using namespace contract;

namespace {

constexpr FunctionDescriptor describe(const char (&name)[8], std::uint16_t minArgs, std::uint16_t maxArgs,
                                      ResultKind kind, std::uint8_t flag33, std::uint32_t argTypes) {
    FunctionDescriptor d{};
    for (int i = 0; i < 8; ++i) d.name[i] = name[i];
    d.minArgs = minArgs;
    d.maxArgs = maxArgs;
    d.constant42 = 0x42;
    d.resultKind = kind;
    d.flag33 = flag33;
    d.flag34 = 0x20;
    d.flag35 = 0x08;
    d.argTypes = argTypes;
    return d;
}

constexpr int kFunctionCount = 8;

constexpr FunctionDescriptor descriptors[kFunctionCount] = {
    describe("KCOUNTX", 2, 3, kNumericResult, 0, 0x92),
    describe("KCOUNTC", 2, 3, kNumericResult, 2, 0x92),
    describe("KCOUNTW", 1, 3, kNumericResult, 2, 0x92),
    describe("KFIND\0\0", 2, 4, kNumericResult, 0, 0x6D2),
    describe("KFINDC\0", 1, 4, kNumericResult, 2, 0x6D2),
    describe("KFINDW\0", 2, 5, kNumericResult, 2, 0x36D2),
    describe("KSCANX\0", 2, 4, kCharacterResult, 2, 0x48A),
    describe("KSCANX\0", 4, 6, kCallRoutine, 2, 0x1224A),
};

constexpr EntryRoutine entries[kFunctionCount] = {
    &kcountxEntry, &kcountcEntry, &kcountwEntry, &kfindEntry,
    &kfindcEntry,  &kfindwEntry,  &kscanxFunctionEntry, &kscanxCallEntry,
};

void* registerTable(std::int32_t mode, std::int32_t count, const FunctionDescriptor* descriptorArray,
                    const EntryRoutine* entryArray) {
    if (mode != kDescriptorTableMode && mode != kEntryTableMode) return nullptr;
    const std::int64_t bytes = mode == kDescriptorTableMode ? static_cast<std::int64_t>(sizeof(FunctionTable))
                                                            : static_cast<std::int64_t>(entryTableBytes(count < 0 ? 0 : count));
    void* block = poolAllocate(host().modulePool, bytes, kPoolModuleZeroed);
    if (block == nullptr) {
        callHost(kHostError, kErrorNoMemory, std::int64_t{0});
        return nullptr;
    }
    if (mode == kDescriptorTableMode) {
        auto* table = static_cast<FunctionTable*>(block);
        table->count = count;
        table->descriptors = descriptorArray;
    } else if (count > 0) {
        // Word 0 stays as allocated.
        std::memcpy(static_cast<char*>(block) + 8, entryArray, sizeof(EntryRoutine) * static_cast<std::size_t>(count));
    }
    return block;
}

}  // namespace

void* functionTableRoutine(std::int32_t mode) {
    return registerTable(mode, kFunctionCount, descriptors, entries);
}

}  // namespace txscan
