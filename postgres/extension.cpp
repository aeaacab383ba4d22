// PostgreSQL's half of the extension: the version-1 functions, their call
// sites in fn_extra, and errors through ereport. ereport leaves a function
// by longjmp, which would skip C++ destructors; so the functions here hold
// only plain data, and everything with a destructor lives behind the
// noexcept calls of backend_host.h.
extern "C" {
#include "postgres.h"

#include "access/htup_details.h"
#include "catalog/pg_proc.h"
#include "catalog/pg_type.h"
#include "fmgr.h"
#include "mb/pg_wchar.h"
#include "utils/builtins.h"
#include "utils/memutils.h"
#include "utils/syscache.h"

// The library is built with hidden symbols; what the server looks up by
// name is made visible here (PostgreSQL 15's PGDLLEXPORT is empty on Linux).
#pragma GCC visibility push(default)
PG_MODULE_MAGIC;
#pragma GCC visibility pop
}

#include "postgres/backend_host.h"

namespace {

// The host's name of the database's encoding, or null for one it lacks.
// SQL_ASCII promises nothing about bytes beyond ASCII, so they are read one
// byte one character, as in Latin-1.
const char* sessionEncoding(int encoding) {
    switch (encoding) {
    case PG_UTF8: return "UTF-8";
    case PG_LATIN1: return "ISO-8859-1";
    case PG_SQL_ASCII: return "ISO-8859-1";
    case PG_WIN1252: return "windows-1252";
    case PG_LATIN9: return "ISO-8859-15";
    case PG_EUC_JP: return "EUC-JP";
    default: return nullptr;
    }
}

void startHost() {
    static bool started = false;
    if (started) return;
    const char* name = sessionEncoding(GetDatabaseEncoding());
    if (name == nullptr) {
        ereport(ERROR, (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                        errmsg("txscan: the database encoding %s is not supported", GetDatabaseEncodingName()),
                        errhint("Use a database in UTF8, LATIN1, WIN1252, LATIN9 or EUC_JP.")));
    }
    char error[256];
    if (!txpg::startBackendHost(name, error, sizeof error)) {
        ereport(ERROR, (errcode(ERRCODE_EXTERNAL_ROUTINE_EXCEPTION), errmsg("txscan: %s", error)));
    }
    started = true;
}

// What a call site keeps in fn_extra, in the memory of the function's
// lookup (fn_mcxt), so it serves every row of a scan; the host's call site
// goes when that memory does.
struct SiteState {
    MemoryContextCallback release;
    txpg::Site* site;
    int function;
    bool isText[txpg::kMaxSqlArguments];   // the declared SQL types of this overload
};

void releaseSite(void* state) {
    auto* s = static_cast<SiteState*>(state);
    txpg::deleteSite(s->site);
    s->site = nullptr;
}

SiteState* siteState(FunctionCallInfo fcinfo, int function) {
    if (fcinfo->flinfo->fn_extra != nullptr) return static_cast<SiteState*>(fcinfo->flinfo->fn_extra);
    startHost();
    auto* state = static_cast<SiteState*>(MemoryContextAllocZero(fcinfo->flinfo->fn_mcxt, sizeof(SiteState)));
    state->function = function;
    HeapTuple tuple = SearchSysCache1(PROCOID, ObjectIdGetDatum(fcinfo->flinfo->fn_oid));
    if (!HeapTupleIsValid(tuple)) elog(ERROR, "txscan: no catalog entry for function %u", fcinfo->flinfo->fn_oid);
    const auto* proc = reinterpret_cast<Form_pg_proc>(GETSTRUCT(tuple));
    for (int i = 0; i < proc->pronargs && i < txpg::kMaxSqlArguments; ++i) {
        state->isText[i] = proc->proargtypes.values[i] == TEXTOID;
    }
    ReleaseSysCache(tuple);
    bool stable[txpg::kMaxSqlArguments] = {};
    const int count = PG_NARGS();
    for (int i = 0; i < count && i < txpg::kMaxSqlArguments; ++i) {
        stable[i] = get_fn_expr_arg_stable(fcinfo->flinfo, i);
    }
    char error[256];
    state->site = txpg::newSite(function, stable, count, error, sizeof error);
    if (state->site == nullptr) {
        ereport(ERROR, (errcode(ERRCODE_EXTERNAL_ROUTINE_EXCEPTION), errmsg("%s: %s", txpg::kSqlFunctions[function].sqlName, error)));
    }
    state->release.func = releaseSite;
    state->release.arg = state;
    MemoryContextRegisterResetCallback(fcinfo->flinfo->fn_mcxt, &state->release);
    fcinfo->flinfo->fn_extra = state;
    return state;
}

// An argument as the error message shows it: a number, NULL, or the start
// of a text cut to whole characters.
char* shownArgument(const txpg::RowArgument& a) {
    if (a.isNull) return pstrdup("NULL");
    if (!a.isText) return psprintf("%.17g", a.number);
    constexpr int kShown = 60;
    const int length = static_cast<int>(a.length);
    if (length <= kShown) return psprintf("'%.*s'", length, a.data);
    return psprintf("'%.*s...'", pg_mbcliplen(a.data, length, kShown), a.data);
}

void reportFailure(int function, const txpg::RowAnswer& answer, const txpg::RowArgument* arguments) {
    const char* name = txpg::kSqlFunctions[function].sqlName;
    const int code = answer.outcome == txpg::RowAnswer::Outcome::NoMemory ? ERRCODE_OUT_OF_MEMORY
                     : answer.outcome == txpg::RowAnswer::Outcome::Refused ? ERRCODE_INVALID_PARAMETER_VALUE
                                                                          : ERRCODE_EXTERNAL_ROUTINE_EXCEPTION;
    if (answer.status == 0) {   // the host failed, not the module
        ereport(ERROR, (errcode(code), errmsg("%s: %s", name, answer.words)));
    }
    if (answer.blamedArgument > 0) {
        ereport(ERROR, (errcode(code), errmsg("%s: %s in argument %d (%s)", name, answer.words, answer.blamedArgument,
                                              shownArgument(arguments[answer.blamedArgument - 1]))));
    }
    ereport(ERROR, (errcode(code), errmsg("%s: %s", name, answer.words)));
}

Datum evaluate(FunctionCallInfo fcinfo, int function) {
    SiteState* state = siteState(fcinfo, function);
    const int count = PG_NARGS();
    txpg::RowArgument arguments[txpg::kMaxSqlArguments];
    for (int i = 0; i < count && i < txpg::kMaxSqlArguments; ++i) {
        txpg::RowArgument& a = arguments[i];
        a.isNull = PG_ARGISNULL(i);
        a.isText = state->isText[i];
        if (a.isNull) continue;
        if (a.isText) {
            text* value = PG_GETARG_TEXT_PP(i);
            a.data = VARDATA_ANY(value);
            a.length = VARSIZE_ANY_EXHDR(value);
        } else {
            a.number = PG_GETARG_FLOAT8(i);
        }
    }
    txpg::RowAnswer answer;
    txpg::callRow(*state->site, arguments, count, answer);
    if (answer.note[0] != '\0') {
        ereport(NOTICE, (errmsg("%s: %s", txpg::kSqlFunctions[function].sqlName, answer.note),
                         errdetail("Later notes of this call are not shown.")));
    }
    switch (answer.outcome) {
    case txpg::RowAnswer::Outcome::Integer: PG_RETURN_INT32(static_cast<int32>(answer.integer));
    case txpg::RowAnswer::Outcome::Text:
        PG_RETURN_TEXT_P(cstring_to_text_with_len(answer.text, static_cast<int>(answer.textLength)));
    case txpg::RowAnswer::Outcome::Null: PG_RETURN_NULL();
    default: break;
    }
    reportFailure(function, answer, arguments);
    PG_RETURN_NULL();
}

}  // namespace

// One C symbol per SQL name; each overload of a name calls the same one.
#define TXSCAN_SQL_FUNCTION(name, index)                                    \
    extern "C" {                                                            \
    _Pragma("GCC visibility push(default)")                                 \
    PG_FUNCTION_INFO_V1(name);                                              \
    Datum name(PG_FUNCTION_ARGS) { return evaluate(fcinfo, index); }        \
    _Pragma("GCC visibility pop")                                           \
    }

TXSCAN_SQL_FUNCTION(kfind, 0)
TXSCAN_SQL_FUNCTION(kcountx, 1)
TXSCAN_SQL_FUNCTION(kfindc, 2)
TXSCAN_SQL_FUNCTION(kcountc, 3)
TXSCAN_SQL_FUNCTION(kcountw, 4)
TXSCAN_SQL_FUNCTION(kfindw, 5)
TXSCAN_SQL_FUNCTION(kscanx, 6)
TXSCAN_SQL_FUNCTION(kscanx_position, 7)
TXSCAN_SQL_FUNCTION(kscanx_length, 8)
