// txscan_messages(): the notes and errors the functions issued in this
// process so far, one row per function and kind of message with its count
// (a call with an unknown modifier letter goes on, so its note is counted
// here rather than failing the query).
#include "duckdb_extension.h"
DUCKDB_EXTENSION_EXTERN

#include <string>
#include <vector>

#include "duckdb/duckdb_function.h"

namespace txduckdb {

namespace {

struct Column {
    const char* name;
    duckdb_type type;
};
constexpr Column kColumns[] = {{"function", DUCKDB_TYPE_VARCHAR}, {"kind", DUCKDB_TYPE_VARCHAR},
                               {"code", DUCKDB_TYPE_INTEGER},     {"letter", DUCKDB_TYPE_VARCHAR},
                               {"text", DUCKDB_TYPE_VARCHAR},     {"count", DUCKDB_TYPE_BIGINT}};

struct Scan {
    std::vector<MessageTotal> totals = messageTotals();   // as they stood when the query started
    std::size_t next = 0;
};

void bind(duckdb_bind_info info) {
    for (const Column& c : kColumns) {
        duckdb_logical_type type = duckdb_create_logical_type(c.type);
        duckdb_bind_add_result_column(info, c.name, type);
        duckdb_destroy_logical_type(&type);
    }
}

void init(duckdb_init_info info) {
    duckdb_init_set_init_data(info, new Scan(), [](void* scan) { delete static_cast<Scan*>(scan); });
}

void assign(duckdb_data_chunk output, idx_t column, idx_t row, const std::string& text) {
    duckdb_vector_assign_string_element_len(duckdb_data_chunk_get_vector(output, column), row, text.data(), text.size());
}

template <typename T>
void store(duckdb_data_chunk output, idx_t column, idx_t row, T value) {
    static_cast<T*>(duckdb_vector_get_data(duckdb_data_chunk_get_vector(output, column)))[row] = value;
}

void produce(duckdb_function_info info, duckdb_data_chunk output) {
    Scan& scan = *static_cast<Scan*>(duckdb_function_get_init_data(info));
    idx_t row = 0;
    for (; row < duckdb_vector_size() && scan.next < scan.totals.size(); ++row, ++scan.next) {
        const MessageTotal& m = scan.totals[scan.next];
        assign(output, 0, row, m.function);
        assign(output, 1, row, m.error ? "error" : "note");
        store<std::int32_t>(output, 2, row, m.code);
        assign(output, 3, row, m.character != 0 ? std::string(1, static_cast<char>(m.character)) : std::string());
        assign(output, 4, row, m.text);
        store<std::int64_t>(output, 5, row, m.count);
    }
    duckdb_data_chunk_set_size(output, row);
}

}  // namespace

bool registerMessagesFunction(duckdb_connection connection) {
    duckdb_table_function f = duckdb_create_table_function();
    duckdb_table_function_set_name(f, "txscan_messages");
    duckdb_table_function_set_bind(f, bind);
    duckdb_table_function_set_init(f, init);
    duckdb_table_function_set_function(f, produce);
    const bool ok = duckdb_register_table_function(connection, f) == DuckDBSuccess;
    duckdb_destroy_table_function(&f);
    return ok;
}

}  // namespace txduckdb
