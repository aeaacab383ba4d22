// The catalogue of the random library's messages.
#include "host/rng_catalogue.h"

namespace txhost {
namespace {

struct Entry {
    std::uint32_t code;
    const char16_t* text;
};

// %s is TKChar text, %hs 8-bit text (see rng_format.h).
constexpr Entry kEntries[] = {
    {0x803FC002, u"The random-number stream is missing (null stream context)."},
    {0x803FC009, u"The setting holds a value of another type."},
    {0x803FC264, u"The setting holds a value of another type."},
    {0x803FC26A, u"The setting has no value."},
    {0x803FC00A, u"The value size does not fit the value type."},
    {0x803FC0F1, u"A name could not be converted from the session encoding."},
    {0x803FC0F2, u"The system query code is not known."},
    {0x8C7FE80B, u"The random-number method name is not known; MTHYBRID is used."},
    {0x8C7FE80C, u"The processor has no RDRAND instruction; MTHYBRID is used."},
    {0x8C7FE80D, u"The random-number method takes no seed."},
    {0x8C7FE80F, u"The random-number method has no streams."},
    {0x8C7FE810, u"The random-number stream number is out of range."},
    {0x8C7FE817, u"The seed %.17g is ignored: method %s takes no seed."},
    {0x8C7FE818,
     u"The seed %.17g is not a whole number from 1 to %llu, as method %s needs; the seed %llu (0x%llx) is used "
     u"instead."},
    {0x8C7FE819, u"The seed %.17g was folded into the range 1 to %.17g but gave %.17g."},
    {0x8C7FE81A, u"The stream %.17g is ignored: method %s has no streams."},
    {0x8C7FE81B, u"The stream %.17g is negative, fractional or above %llu, the largest stream of method %s."},
    {0x8C7FE81C, u"The stream %llu is above %llu, the largest stream number method %s can take here."},
    {0x8C7FE828, u"Random numbers come from method %hs."},
    {0x8C7FE829, u"Random numbers come from method %hs with seed %llu (0x%llx)."},
    {0x8C7FE82A, u"Random numbers come from method %hs with seed %llu (0x%llx) and stream %llu (0x%llx)."},
    {0x8C7FE851, u"Random-number method %hs is set up."},
    {0x8C7FE852, u"Random-number method %hs keeps %lli bytes of working state."},
    {0x8C7FE8C8, u"The value '%.*s' of setting %.*s is not an integer from %lli to %lli; the default is used."},
    {0x8C7FE8C9, u"The word '%.*s' is not known for setting %.*s; the setting is cleared and the default used."},
    {0x8C7FE8CA, u"The message limit %.*s is reached; further messages of this kind are not shown."},
};

}  // namespace

const char16_t* rngCatalogueText(std::int32_t code) {
    for (const Entry& entry : kEntries)
        if (static_cast<std::int32_t>(entry.code) == code) return entry.text;
    return nullptr;
}

const char* rngSeverityPrefix(std::int32_t severity) {
    switch (severity) {
    case 2: return "NOTE: ";
    case 3: return "WARNING: ";
    case 4: return "ERROR: ";
    default: return "INFO: ";
    }
}

}  // namespace txhost
