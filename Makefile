# Front door. `make run` builds and starts Vantler; `make test` builds with sanitizers and runs
# every test; `make bench` runs the benchmarks. Missing Debian packages are installed first.

BUILD ?= build
TEST_BUILD ?= build-test
BENCH_BUILD ?= build-bench
JOBS ?= $(shell nproc)
CMAKE_GEN := -G Ninja

FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30

.PHONY: all deps build run test test-native test-desktop test-web test-agents fuzz bench format clean
.PHONY: install deb test-install test-deb release-build

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
	@$(MAKE) --no-print-directory test-desktop
	@$(MAKE) --no-print-directory test-install
	@$(MAKE) --no-print-directory fuzz FUZZ_SECONDS=20
	@$(MAKE) --no-print-directory test-web

# The desktop app end to end (Xvfb + openbox + xcompmgr, and headless sway) against the normal
# build; screenshots go to $(BUILD)/screenshots.
test-desktop: build
	@scripts/deps.sh test
	@/usr/bin/python3 tests/desktop/x11_test.py $(BUILD)
	@/usr/bin/python3 tests/desktop/sway_test.py $(BUILD)
	@/usr/bin/python3 tests/dbus/dbus_test.py $(BUILD)
	@/usr/bin/python3 tests/desktop/keys_test.py $(BUILD)
	@/usr/bin/python3 tests/desktop/portal_test.py $(BUILD)

# `make install` into a temporary prefix from the normal build, then the same build packaged
# as a .deb and unpacked: the installed app starts, finds its page, its hook program and its
# desktop files, and the package names its dependencies.
test-install: build
	@scripts/deps.sh test
	@/usr/bin/python3 tests/install/install_test.py $(BUILD)
	@rm -rf $(BUILD)/dist && scripts/make-deb.sh $(BUILD) $(BUILD)/dist
	@/usr/bin/python3 tests/install/install_test.py $(BUILD) --deb $$(ls $(BUILD)/dist/vantler_*.deb)

# A Release build installed under PREFIX (DESTDIR stages it elsewhere); `make deb` packages the
# same build for /usr as dist/vantler_<version>_<arch>.deb, `make test-deb` checks the package.
PREFIX ?= /usr/local
RELEASE_BUILD ?= build-release
release-build: deps
	@cmake -S . -B $(RELEASE_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DVANTLER_TESTS=OFF >/dev/null
	@cmake --build $(RELEASE_BUILD) -j $(JOBS)

install: release-build
	@DESTDIR=$(DESTDIR) cmake --install $(RELEASE_BUILD) --prefix $(PREFIX) --strip
	@if [ -z "$(DESTDIR)" ] && command -v gtk-update-icon-cache >/dev/null; then \
	  gtk-update-icon-cache -qtf $(PREFIX)/share/icons/hicolor || true; fi

deb: release-build
	@scripts/make-deb.sh $(RELEASE_BUILD) dist

test-deb: deb
	@scripts/deps.sh test
	@/usr/bin/python3 tests/install/install_test.py $(RELEASE_BUILD) \
	  --deb $$(ls -t dist/vantler_*.deb | head -n 1)

test-native:
	@scripts/deps.sh test
	@cmake -S . -B $(TEST_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DVANTLER_SANITIZE=ON >/dev/null
	@cmake --build $(TEST_BUILD) -j $(JOBS)
	@cd $(TEST_BUILD) && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --output-on-failure -j $(JOBS)

test-web:
	@if [ -x scripts/test-web.sh ]; then scripts/test-web.sh; fi

# The real Claude Code, Codex and Qwen Code CLIs (pinned, installed from npm into
# ~/.cache/vantler-test-agents) against a scripted local model server, hooked to the daemon of
# the normal build. Skips with one line when npm cannot be reached; VANTLER_AGENTS_STRICT=1
# makes known failures fatal.
test-agents: build
	@scripts/deps.sh agents
	@python3 tests/agents/run_agents.py --build $(BUILD)

# libFuzzer with ASan/UBSan over the hook line protocol and the settings-file editor, for
# FUZZ_SECONDS in all (half each).
fuzz:
	@scripts/deps.sh test
	@CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug \
	  -DVANTLER_SANITIZE=ON -DVANTLER_FUZZ=ON -DVANTLER_TESTS=OFF >/dev/null
	@cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fuzz_router fuzz_settings
	@for t in router settings; do \
	  mkdir -p $(FUZZ_BUILD)/corpus-$$t && cp tests/fixtures/*.json* $(FUZZ_BUILD)/corpus-$$t/ 2>/dev/null; \
	  echo "== fuzz_$$t"; \
	  $(FUZZ_BUILD)/fuzz_$$t -max_total_time=$$(( ($(FUZZ_SECONDS) + 1) / 2 )) -max_len=8192 \
	    -print_final_stats=1 $(FUZZ_BUILD)/corpus-$$t >$(FUZZ_BUILD)/fuzz_$$t.log 2>&1; \
	  status=$$?; tail -n 12 $(FUZZ_BUILD)/fuzz_$$t.log; [ $$status -eq 0 ] || exit 1; \
	done

bench:
	@scripts/deps.sh build
	@cmake -S . -B $(BENCH_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DVANTLER_TESTS=OFF -DVANTLER_BENCH=ON >/dev/null
	@cmake --build $(BENCH_BUILD) -j $(JOBS)
	@for b in $(BENCH_BUILD)/bench_*; do echo "== $$(basename $$b)"; $$b || exit 1; done
	@if command -v Xvfb >/dev/null && command -v openbox >/dev/null && command -v xcompmgr >/dev/null; then \
	  echo "== desktop app"; /usr/bin/python3 bench/desktop_bench.py $(BENCH_BUILD); \
	  echo "== hot keys"; /usr/bin/python3 bench/keys_bench.py $(BENCH_BUILD); \
	else echo "== desktop app: skipped (needs Xvfb, openbox and xcompmgr: scripts/deps.sh test)"; fi
	@echo "== vantler status --follow"; /usr/bin/python3 bench/status_bench.py $(BENCH_BUILD)
	@if [ -x scripts/test-web.sh ]; then scripts/test-web.sh bench; fi

format:
	@clang-format -i $$(git ls-files 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'bench/*.cpp')

clean:
	rm -rf $(BUILD) $(TEST_BUILD) $(BENCH_BUILD) $(RELEASE_BUILD) dist
