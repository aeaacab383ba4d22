// The names every SQL door registers (SQLite, DuckDB, PostgreSQL), in one
// table so the doors cannot drift apart. An SQL function gives one value, so
// the call routine appears twice, once per output. Plain data with no host
// types, so a door whose own headers must stay apart from the host's (as
// PostgreSQL's do) can include it too.
#pragma once

#include <array>

namespace txhost {

struct SqlFunction {
    const char* sqlName;      // "kfind"
    const char* moduleName;   // "KFIND"
    bool callRoutine;
    enum class Output { Result, Position, Length } output;
};

inline constexpr std::array kSqlFunctions{
    SqlFunction{"kfind", "KFIND", false, SqlFunction::Output::Result},
    SqlFunction{"kcountx", "KCOUNTX", false, SqlFunction::Output::Result},
    SqlFunction{"kfindc", "KFINDC", false, SqlFunction::Output::Result},
    SqlFunction{"kcountc", "KCOUNTC", false, SqlFunction::Output::Result},
    SqlFunction{"kcountw", "KCOUNTW", false, SqlFunction::Output::Result},
    SqlFunction{"kfindw", "KFINDW", false, SqlFunction::Output::Result},
    SqlFunction{"kscanx", "KSCANX", false, SqlFunction::Output::Result},
    SqlFunction{"kscanx_position", "KSCANX", true, SqlFunction::Output::Position},
    SqlFunction{"kscanx_length", "KSCANX", true, SqlFunction::Output::Length},
};

}  // namespace txhost
