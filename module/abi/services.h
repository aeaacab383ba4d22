// The numbered host services: service (c, f) is function f of service table
// c in the HostVector's directory. Each service is declared once with its
// signature so that module and host agree on it; the module calls them only
// through callHost (module/frame/host_call.h), which marks the table as used.
#pragma once

#include <cstdint>

namespace txscan::contract {

template <typename Signature>
struct HostService {
    int table;
    int function;
};

// Note `code` of class `kind` about `functionName` and the (upper-cased) letter.
inline constexpr HostService<void(std::int32_t code, std::int32_t kind, const char* functionName, std::int32_t character)>
    kHostNote{39, 70};
// Raise error `code`; returns to the caller.
inline constexpr HostService<void(std::int32_t code, std::int64_t detail)> kHostError{39, 4};
// Look up a system option by name into `destination`; 0 on success.
inline constexpr HostService<std::int32_t(const char* name, std::int32_t nameLength, std::int64_t, std::int64_t,
                                          std::int64_t, void* destination, std::int64_t, void* callContext)>
    kHostGetOption{39, 57};
// Fill an 8-byte blank-padded text.
inline constexpr HostService<void(char* destination)> kHostText8{39, 194};
// Store `value` in slot `slot` of the context's slot table.
inline constexpr HostService<void(void* callContext, std::int32_t slot, void* value)> kHostSetContextSlot{0, 192};
// Target of moduleProcedureB, arguments forwarded unchanged.
inline constexpr HostService<std::uint64_t(std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t)>
    kHostForwarded{1, 2};
// The host option text (item 4163) into `buffer`; `length` is capacity in, text length out.
inline constexpr HostService<std::int32_t(std::int64_t, std::int32_t item, std::int64_t, std::int64_t, std::int64_t,
                                          char* buffer, std::int32_t* length, std::int64_t, void* callContext)>
    kHostQueryText{39, 56};
inline constexpr std::int32_t kOptionTextItem = 4163;
// Parse the integer at `text`; reports the characters used and the value.
inline constexpr HostService<std::int32_t(const char* text, std::int32_t length, std::int64_t,
                                          std::int32_t* charactersUsed, std::int32_t* value)>
    kHostParseInteger{0, 320};
inline constexpr HostService<std::int32_t(std::int64_t, std::int32_t)> kHostOptionBracket{39, 108};
inline constexpr HostService<std::int32_t(std::int64_t, std::int32_t, std::int32_t)> kHostSetOptionFlag{39, 138};

inline constexpr std::int32_t kNoteUnknownModifier = 744;
inline constexpr std::int32_t kNoteKindModifier = 6;
inline constexpr std::int32_t kErrorNoMemory = 1016;

// Highest table and function numbers the host directory must cover.
inline constexpr int kServiceTables = 40;
inline constexpr int kServiceFunctions = 321;

}  // namespace txscan::contract
