# Top-level entry points. Every target installs what it misses (Debian
# packages), configures and builds on its own, so a fresh machine works.

BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
BENCH_BUILD ?= build-bench
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 600
GENERATOR  := -G Ninja
PACKAGES   := cmake ninja-build g++ clang libicu-dev libgtest-dev libgmock-dev libbenchmark-dev \
              libcli11-dev libcsv-dev librandom123-dev libpcg-cpp-dev binutils sqlite3 libsqlite3-dev \
              python3 python3-dev pybind11-dev python3-numpy python3-pandas python3-dask python3-distributed \
              python3-pytest postgresql-15 postgresql-server-dev-15
JOBS       ?= $(shell nproc)
# DuckDB (for its extension, tests and `txscan sql`): a system libduckdb, or
# the official build fetched from the npm registry into DUCKDB_DIR, shared by
# every build directory.
DUCKDB_DIR ?= $(BUILD)/_deps/duckdb
CMAKE_DUCKDB := -DTXSCAN_DUCKDB_DIR=$(CURDIR)/$(DUCKDB_DIR)
# The peers of the benchmarks (R's stringi and data.table, pandas; GNU time
# for peak memory).
BENCH_PACKAGES := r-base-core r-cran-stringi r-cran-data.table python3-pandas time mawk
# The Windows leg: mingw-w64 cross build of the DLL, the host and the tests,
# run under Wine. GoogleTest is built from Debian's source package there.
WIN_BUILD    ?= build/win64
WIN_PACKAGES := cmake ninja-build g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64 googletest \
                librandom123-dev libpcg-cpp-dev
# The fuzz leg: clang with libFuzzer and its sanitizer runtimes.
FUZZ_PACKAGES := $(PACKAGES) libclang-rt-14-dev

.PHONY: all deps deps-duckdb deps-windows deps-fuzz configure build install-postgres demo test test-asan test-tsan test-clang test-windows bench \
        fuzz fuzz-ci fuzz-build clean

all: build

# Installs the missing ones of a list of Debian packages (as root, or
# through sudo on a fresh machine).
define install_missing
	@missing=""; for p in $(1); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q "install ok installed" || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "installing:$$missing"; \
	  SUDO=""; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq $$missing; \
	fi
endef

deps:
	$(call install_missing,$(PACKAGES))

# DuckDB from the npm registry (npm from Debian when missing), unless the
# system has libduckdb and its C API headers. Without either the DuckDB
# parts are skipped (CMake says so) and everything else builds.
deps-duckdb:
	@if ldconfig -p | grep -q 'libduckdb\.so ' && [ -f /usr/include/duckdb_extension.h ]; then exit 0; fi; \
	if ! command -v npm >/dev/null 2>&1; then \
	  SUDO=""; [ "$$(id -u)" = 0 ] || SUDO=sudo; \
	  $$SUDO apt-get update -qq && DEBIAN_FRONTEND=noninteractive $$SUDO apt-get install -y -qq npm || true; \
	fi; \
	./scripts/fetch-duckdb.sh $(DUCKDB_DIR) || echo "DuckDB could not be fetched: the DuckDB parts are skipped"

# The Windows leg's packages.
deps-windows:
	$(call install_missing,$(WIN_PACKAGES))

deps-fuzz:
	$(call install_missing,$(FUZZ_PACKAGES))

$(BUILD)/build.ninja: | deps deps-duckdb
	cmake -S . -B $(BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_DUCKDB)

configure: $(BUILD)/build.ninja

build: deps deps-duckdb configure
	cmake --build $(BUILD) -j $(JOBS)

# The PostgreSQL extension where pg_config says (as root, or through sudo).
install-postgres: build
	SUDO=""; [ "$$(id -u)" = 0 ] || SUDO=sudo; $$SUDO cmake --install $(BUILD) --component postgres

demo: build
	./scripts/demo.sh $(BUILD)/bin/txscan

test: build
	@nm -D --defined-only $(BUILD)/lib/txscanmd.so | awk '$$2 ~ /[TDBRW]/ {print $$3}' | sort | tr '\n' ' ' \
	  | grep -qx 'mcn_main tkvercn1 ' || { echo "module must export exactly mcn_main and tkvercn1"; exit 1; }
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: deps deps-duckdb
	cmake -S . -B $(ASAN_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DTXSCAN_SANITIZE=ON $(CMAKE_DUCKDB)
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=0 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j $(JOBS)

# The threaded parts (the host's tests and the row engine's, on 1, 2 and 4
# workers) under ThreadSanitizer.
test-tsan: deps
	cmake -S . -B $(TSAN_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTXSCAN_TSAN=ON
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target test_host test_engine
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/bin/test_host
	TSAN_OPTIONS=halt_on_error=1 $(TSAN_BUILD)/bin/test_engine

test-clang: deps deps-duckdb
	cmake -S . -B build-clang $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
	  $(CMAKE_DUCKDB)
	cmake --build build-clang -j $(JOBS)
	cd build-clang && ctest --output-on-failure -j $(JOBS)

# The module as a 64-bit Windows DLL ($(WIN_BUILD)/txscanmd.dll): its export
# table and imports checked, then every test program run under Wine.
test-windows: deps-windows
	cmake -S . -B $(WIN_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/mingw-w64-x86_64.cmake
	cmake --build $(WIN_BUILD) -j $(JOBS)
	./scripts/check-dll.sh $(WIN_BUILD)/txscanmd.dll
	./scripts/run-wine-tests.sh $(WIN_BUILD)

bench: deps deps-duckdb
	$(call install_missing,$(BENCH_PACKAGES))
	cmake -S . -B $(BENCH_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DTXSCAN_BENCH=ON $(CMAKE_DUCKDB)
	cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bin/bench_*; do [ "$$b" = $(BENCH_BUILD)/bin/bench_engine ] && continue; \
	  echo "== $$b"; $$b --benchmark_counters_tabular=true || exit 1; done
	@echo "== the row engine against the direct call, CallSite::call, stringi and pandas"
	/usr/bin/python3 bench/engine/compare.py $(BENCH_BUILD)/bin/bench_engine
	@echo "== txscan apply end to end against R (data.table, stringi), pandas and awk"
	./bench/apply/run.sh $(BENCH_BUILD)/bin/txscan
	@echo "== SQL: the extension against SQLite's instr and Python user functions"
	/usr/bin/python3 bench/sqlite/bench_sql.py $(BENCH_BUILD)/lib/txscan_sqlite
	@if [ -x $(BENCH_BUILD)/lib/txscan.duckdb_extension ] || [ -f $(BENCH_BUILD)/lib/txscan.duckdb_extension ]; then \
	  echo "== DuckDB: the extension against DuckDB's built-ins and txscan apply, CSV and Parquet"; \
	  ./bench/duckdb/run.sh $(BENCH_BUILD)/bin/txscan; fi
	@echo "== PostgreSQL: the extension against strpos, regexp_split_to_array, split_part and regexp_replace"
	./bench/postgres/run.sh $(BENCH_BUILD)
	@echo "== the Python package against pandas and stringi; dask on 2 worker processes against 1"
	PYTHONPATH=$(BENCH_BUILD)/python /usr/bin/python3 bench/python/bench_python.py

# The libFuzzer targets of fuzz/ (clang, ASan and UBSan). `make fuzz` runs
# each for FUZZ_SECONDS; `make fuzz-ci` runs each for the fixed number of
# inputs in fuzz/ci-runs.txt. Either fails on the first finding, which is
# left in $(FUZZ_BUILD)/fuzz-findings/.
fuzz-build: deps-fuzz
	cmake -S . -B $(FUZZ_BUILD) $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTXSCAN_FUZZ=ON \
	  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_targets

fuzz: fuzz-build
	./scripts/run-fuzz.sh $(FUZZ_BUILD) seconds $(FUZZ_SECONDS)

fuzz-ci: fuzz-build
	./scripts/run-fuzz.sh $(FUZZ_BUILD) runs

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(BENCH_BUILD) $(FUZZ_BUILD) build-clang
