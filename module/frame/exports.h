// The module's two exported entry points; nothing else is visible outside it.
#pragma once

#include <cstdint>

#if defined(_WIN32)
#define TXSCAN_EXPORT extern "C" __declspec(dllexport)
#else
#define TXSCAN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

// Binds the module to the host and answers the address of its ImageInformation.
TXSCAN_EXPORT void* mcn_main(void* hostVector, std::uint64_t hostWord);
// Copies the 208-byte VersionRecord into `destination`.
TXSCAN_EXPORT void tkvercn1(void* destination);
