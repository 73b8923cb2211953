# Front door. `make run` builds and starts Vantler; `make test` builds with sanitizers and runs
# every test; `make bench` runs the benchmarks. Missing Debian packages are installed first.

BUILD ?= build
TEST_BUILD ?= build-test
BENCH_BUILD ?= build-bench
JOBS ?= $(shell nproc)
CMAKE_GEN := -G Ninja

FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30

.PHONY: all deps build run test test-native test-web fuzz bench format clean

all: build

deps:
	@scripts/deps.sh build

build: deps
	@cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTLER_TESTS=OFF >/dev/null
	@cmake --build $(BUILD) -j $(JOBS)

# Starts the desktop app (the panel), or the daemon in the foreground when there is no display;
# Ctrl-C stops either. A new start replaces a running instance.
run: build
	@scripts/deps.sh run
	@if [ -n "$$DISPLAY$$WAYLAND_DISPLAY" ]; then ./$(BUILD)/vantler $(ARGS); \
	else ./$(BUILD)/vantler daemon --replace $(ARGS); fi

# The native tests, a short fuzz run, then the page's tests.
test: test-native
	@$(MAKE) --no-print-directory fuzz FUZZ_SECONDS=20
	@$(MAKE) --no-print-directory test-web

test-native:
	@scripts/deps.sh test
	@cmake -S . -B $(TEST_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DVANTLER_SANITIZE=ON >/dev/null
	@cmake --build $(TEST_BUILD) -j $(JOBS)
	@cd $(TEST_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

test-web:
	@if [ -x scripts/test-web.sh ]; then scripts/test-web.sh; fi

# libFuzzer with ASan/UBSan over the hook line protocol, for FUZZ_SECONDS.
fuzz:
	@scripts/deps.sh test
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug \
	  -DVANTLER_SANITIZE=ON -DVANTLER_FUZZ=ON -DVANTLER_TESTS=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_router
	@mkdir -p $(FUZZ_BUILD)/corpus && cp tests/fixtures/*.json* $(FUZZ_BUILD)/corpus/ 2>/dev/null || true
	@$(FUZZ_BUILD)/fuzz_router -max_total_time=$(FUZZ_SECONDS) -max_len=8192 -print_final_stats=1 \
	  $(FUZZ_BUILD)/corpus 2>&1 | tail -n 12

bench:
	@scripts/deps.sh build
	@cmake -S . -B $(BENCH_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DVANTLER_TESTS=OFF -DVANTLER_BENCH=ON >/dev/null
	@cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench_*; do echo "== $$(basename $$b)"; $$b || exit 1; done
	@if command -v Xvfb >/dev/null && command -v openbox >/dev/null && command -v xcompmgr >/dev/null; then \
	  echo "== desktop app"; /usr/bin/python3 bench/desktop_bench.py $(BENCH_BUILD); \
	else echo "== desktop app: skipped (needs Xvfb, openbox and xcompmgr: scripts/deps.sh test)"; fi
	@if [ -x scripts/test-web.sh ]; then scripts/test-web.sh bench; fi

format:
	@clang-format -i $$(git ls-files 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'bench/*.cpp')

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(BENCH_BUILD)
