# Finds DuckDB for the extension, its tests and `txscan sql`: a system
# libduckdb with its C API headers where one is installed, else the copy
# `make` fetches from the npm registry into TXSCAN_DUCKDB_DIR
# (scripts/fetch-duckdb.sh). Without either the DuckDB parts are skipped and
# everything else builds. Sets TXSCAN_HAVE_DUCKDB and the target DuckDB::DuckDB.
set(TXSCAN_DUCKDB_DIR ${CMAKE_BINARY_DIR}/_deps/duckdb CACHE PATH "DuckDB fetched by scripts/fetch-duckdb.sh")
set(TXSCAN_HAVE_DUCKDB OFF)
if(WIN32 OR TXSCAN_FUZZ)
  return()
endif()
find_library(TXSCAN_DUCKDB_LIBRARY duckdb NO_CACHE)
find_path(TXSCAN_DUCKDB_INCLUDE duckdb_extension.h NO_CACHE)
if(NOT TXSCAN_DUCKDB_LIBRARY OR NOT TXSCAN_DUCKDB_INCLUDE)
  find_library(TXSCAN_DUCKDB_LIBRARY duckdb PATHS ${TXSCAN_DUCKDB_DIR}/lib NO_DEFAULT_PATH NO_CACHE)
  find_path(TXSCAN_DUCKDB_INCLUDE duckdb_extension.h PATHS ${TXSCAN_DUCKDB_DIR}/include NO_DEFAULT_PATH NO_CACHE)
endif()
if(NOT TXSCAN_DUCKDB_LIBRARY OR NOT TXSCAN_DUCKDB_INCLUDE)
  message(STATUS "DuckDB: no system libduckdb and none in ${TXSCAN_DUCKDB_DIR} (make fetches it): "
                 "the DuckDB extension, its tests and txscan sql are skipped")
  return()
endif()
message(STATUS "DuckDB: ${TXSCAN_DUCKDB_LIBRARY}")
get_filename_component(TXSCAN_DUCKDB_LIBRARY_DIR ${TXSCAN_DUCKDB_LIBRARY} DIRECTORY)
set(TXSCAN_HAVE_DUCKDB ON)
add_library(DuckDB::DuckDB SHARED IMPORTED)
set_target_properties(DuckDB::DuckDB PROPERTIES IMPORTED_LOCATION ${TXSCAN_DUCKDB_LIBRARY}
  IMPORTED_NO_SONAME OFF INTERFACE_INCLUDE_DIRECTORIES ${TXSCAN_DUCKDB_INCLUDE})
# The extension itself links no DuckDB: it reaches it through the function
# table DuckDB hands to its entry point, so it needs the headers only.
add_library(DuckDB::Headers INTERFACE IMPORTED)
set_target_properties(DuckDB::Headers PROPERTIES INTERFACE_INCLUDE_DIRECTORIES ${TXSCAN_DUCKDB_INCLUDE})
