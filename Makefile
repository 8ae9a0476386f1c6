# Thin wrapper over CMake. `make test` installs missing Debian packages, builds and runs ctest.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
PACKAGES := cmake g++ make pkg-config libcxxtools-dev libgtest-dev libgmock-dev \
    libmicrohttpd-dev libcurl4-openssl-dev curl openssl libmosquitto-dev mosquitto

# `make bench`: the benchmarks, built in Release in their own directory; never run by `make test`.
BENCH_DIR ?= build-bench
BENCH_PACKAGES := libbenchmark-dev rapidjson-dev
BENCH_ARGS ?=

.PHONY: all deps configure build test install clean bench demo

all: build

deps:
	@./scripts/install-deps.sh $(PACKAGES)

# DME_WERROR=ON (as CI sets it) turns compiler warnings into errors.
configure: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
	    $(if $(DME_WERROR),-DDME_WERROR=$(DME_WERROR))

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

# `make install PREFIX=/opt/dme` chooses the prefix (default: CMake's, /usr/local); DESTDIR
# stages the install under another root, as a package build does.
PREFIX ?=
install: build
	DESTDIR=$(DESTDIR) cmake --install $(BUILD_DIR) $(if $(PREFIX),--prefix $(PREFIX))

# `make demo`: the example gateway served over HTTP in the foreground (PORT=NNNN to move it),
# its configuration kept in $(BUILD_DIR)/demo-state across restarts.
PORT ?= 8080
demo: configure
	cmake --build $(BUILD_DIR) -j $(JOBS) --target dme-device-server
	mkdir -p $(BUILD_DIR)/demo-state
	$(BUILD_DIR)/dme-device-server --port $(PORT) --state-dir $(BUILD_DIR)/demo-state

bench: deps
	@./scripts/install-deps.sh $(BENCH_PACKAGES)
	cmake -S . -B $(BENCH_DIR) -DCMAKE_BUILD_TYPE=Release -DDME_BUILD_TESTS=OFF \
	    -DDME_BUILD_HTTP=OFF -DDME_BUILD_BENCH=ON
	cmake --build $(BENCH_DIR) -j $(JOBS) --target dme-bench
	mkdir -p bench/results
	$(BENCH_DIR)/bench/dme-bench --benchmark_out=bench/results/latest.json \
	    --benchmark_out_format=json $(BENCH_ARGS)
	@echo "Raw results: bench/results/latest.json"

clean:
	rm -rf $(BUILD_DIR)

# `make check-armhf`: cross build for 32-bit ARM hard-float with Debian's cross toolchain, unit
# tests run under qemu-arm. The armhf libraries are unpacked into ARMHF_ROOT, not installed (see
# scripts/fetch-armhf-packages.sh). The HTTP binding and the benchmarks are left out. ctest runs a
# test's own executable under qemu-arm, but not one started by a script: ARMHF_HOST_ONLY_TESTS are
# those that start an armhf executable from a shell script, or (install-and-consume) build a
# consumer with the build machine's own compiler.
ARMHF_BUILD_DIR ?= build-armhf
ARMHF_ROOT ?= build-armhf-packages
ARMHF_HOST_PACKAGES := cmake make pkg-config crossbuild-essential-armhf qemu-user
ARMHF_TARGET_PACKAGES := libcxxtools10 libcxxtools-dev libssl3 libgtest-dev libgmock-dev
ARMHF_HOST_ONLY_TESTS := install-and-consume|dme-cli-exits-[12]-.*|example-doc-shows-real-outputs|\
    guide-sample-.*

# `make check-armhf-core`: the same cross build, but only the library and the unit tests of the
# request processing and resource tree subsystems (tests/request, tests/tree), as CI runs it.
ARMHF_CORE_SUBSYSTEMS := request tree

.PHONY: armhf-deps armhf-configure armhf-build check-armhf check-armhf-core

armhf-deps:
	@./scripts/install-deps.sh $(ARMHF_HOST_PACKAGES)
	@./scripts/fetch-armhf-packages.sh $(ARMHF_ROOT) $(ARMHF_TARGET_PACKAGES)

armhf-configure: armhf-deps
	cmake -S . -B $(ARMHF_BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
	    -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/armhf-toolchain.cmake \
	    -DDME_ARMHF_ROOT=$(abspath $(ARMHF_ROOT))/root -DDME_BUILD_HTTP=OFF -DDME_BUILD_BENCH=OFF

armhf-build: armhf-configure
	cmake --build $(ARMHF_BUILD_DIR) -j $(JOBS)

check-armhf: armhf-build
	cd $(ARMHF_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) \
	    -E '^($(subst $() ,,$(ARMHF_HOST_ONLY_TESTS)))$$'

check-armhf-core: armhf-configure
	cmake --build $(ARMHF_BUILD_DIR) -j $(JOBS) \
	    --target $(foreach subsystem,$(ARMHF_CORE_SUBSYSTEMS),dme-$(subsystem)-tests)
	cd $(ARMHF_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) \
	    -L '^($(subst $() ,|,$(ARMHF_CORE_SUBSYSTEMS)))$$'

# Reliability runs (see docs/reliability.md); the sanitizers build in directories of their own,
# memcheck runs the main build's tests. Every report of a sanitizer or of memcheck fails the run.
# `make test-asan`: the whole test suite under AddressSanitizer and UndefinedBehaviorSanitizer.
# `make test-tsan`: the threaded suites (engine, notifier, subscriptions, thread class, the
# notification stress test and, when they are built, the HTTP and MQTT bindings) under
# ThreadSanitizer.
# `make valgrind`: every unit test executable of $(BUILD_DIR) under memcheck.
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
SANITIZER_PACKAGES := libasan8 libubsan1 libtsan2
VALGRIND_PACKAGES := valgrind
# verify_asan_link_order=0 lets the install test run its uninstrumented consumer program, which
# gets the ASan runtime through the instrumented library only.
ASAN_ENV := ASAN_OPTIONS=detect_leaks=1:check_initialization_order=1:strict_init_order=1:detect_stack_use_after_return=1:verify_asan_link_order=0 \
	UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
TSAN_ENV := TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
TSAN_SUITES := ^(DataModel|Engine|JsonEngine|Notifier|NotificationStress|Subscri|Thread)[A-Za-z]*\.
# --max-threads: the MQTT fleet test runs 200 devices of about four threads each.
VALGRIND_OPTIONS := --leak-check=full --errors-for-leak-kinds=definite,indirect --error-exitcode=1 \
    --max-threads=2000
# memcheck computes long double in 64 bits, not x87's 80: numbers beyond the range of doubles
# (the JSON corpus's huge exponents) then read otherwise than on the processor, so that one test
# is left out under it.
VALGRIND_GTEST_FILTER := -JsonTestSuite.TextsLeftToTheParserAreAcceptedOrRefusedCleanly

.PHONY: test-asan test-tsan valgrind

test-asan: deps
	@./scripts/install-deps.sh $(SANITIZER_PACKAGES)
	cmake -S . -B $(ASAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DDME_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD_DIR) -j $(JOBS)
	cd $(ASAN_BUILD_DIR) && $(ASAN_ENV) ctest --output-on-failure -j $(JOBS)

test-tsan: deps
	@./scripts/install-deps.sh $(SANITIZER_PACKAGES)
	cmake -S . -B $(TSAN_BUILD_DIR) -DCMAKE_BUILD_TYPE=Debug -DDME_SANITIZE=thread
	cmake --build $(TSAN_BUILD_DIR) -j $(JOBS)
	cd $(TSAN_BUILD_DIR) && suites='$(TSAN_SUITES)' && \
	for binding in tests/dme-http-tests tests/dme-mqtt-tests; do \
	    [ -x $$binding ] || continue; \
	    names=$$($$binding --gtest_list_tests | sed -n 's|^\([A-Za-z0-9_/]*\)\.$$|\1|p' | paste -sd'|') && \
	    suites="$$suites|^($$names)\."; \
	done && \
	$(TSAN_ENV) ctest --output-on-failure -j $(JOBS) -R "$$suites"

valgrind: build
	@./scripts/install-deps.sh $(VALGRIND_PACKAGES)
	@status=0; for test in $(BUILD_DIR)/tests/dme-*-tests; do \
	    echo "== valgrind $$test"; \
	    valgrind $(VALGRIND_OPTIONS) $$test --gtest_brief=1 \
	        --gtest_filter='$(VALGRIND_GTEST_FILTER)' || status=1; \
	done; exit $$status

# `make fuzz`: the libFuzzer targets of fuzz/ (query strings, uris and the path browser, select
# texts, JSON text, whole requests to the example gateway's engine and to its HTTP binding, its
# saved configuration file), built with clang under AddressSanitizer and
# UndefinedBehaviorSanitizer in their own build directory, each run for FUZZ_SECONDS from its
# committed seed corpus (scripts/fuzz.sh). Any crash, sanitizer report, leak or failed check
# fails the run and leaves the input in FUZZ_BUILD_DIR/fuzz-artifacts/.
# `make load`: the example device service driven for LOAD_SECONDS over 30 connections by the
# load client load/dme_load.cpp (scripts/load.sh); it reports requests per second, latency,
# errors and the service's memory, and fails on any error or on memory growth.
FUZZ_BUILD_DIR ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_TARGETS := arguments path select engine json http saved_config
FUZZ_CAMPAIGN_SECONDS ?= 600
FUZZ_PACKAGES := clang libclang-rt-14-dev
LOAD_SECONDS ?= 60
SOAK_SECONDS ?= 600
LOAD_PACKAGES := libcurl4-openssl-dev pkg-config

.PHONY: fuzz fuzz-build fuzz-campaign load-build load soak

fuzz-build: deps
	@./scripts/install-deps.sh $(FUZZ_PACKAGES)
	cmake -S . -B $(FUZZ_BUILD_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_COMPILER=clang++ \
	    -DDME_SANITIZE=fuzzer-no-link,address,undefined -DDME_BUILD_FUZZ=ON \
	    -DDME_BUILD_TESTS=OFF -DDME_BUILD_HTTP=ON
	cmake --build $(FUZZ_BUILD_DIR) -j $(JOBS) --target $(addprefix dme-fuzz-,$(FUZZ_TARGETS))

fuzz: fuzz-build
	./scripts/fuzz.sh $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# `make fuzz-campaign`: every target for FUZZ_CAMPAIGN_SECONDS, in parallel on the cores there
# are, then the committed corpora replaced by their minimised union with what was found (see
# scripts/fuzz-campaign.sh and docs/reliability.md). Not run by CI.
fuzz-campaign: fuzz-build
	./scripts/fuzz-campaign.sh $(FUZZ_BUILD_DIR) $(FUZZ_CAMPAIGN_SECONDS) $(FUZZ_TARGETS)

load-build: configure
	@./scripts/install-deps.sh $(LOAD_PACKAGES)
	cmake --build $(BUILD_DIR) -j $(JOBS) --target dme-device-server
	$(CXX) -std=c++17 -O2 -Wall -Wextra -Wpedantic load/dme_load.cpp -o $(BUILD_DIR)/dme-load \
	    $$(pkg-config --cflags --libs libcurl) -pthread

load: load-build
	./scripts/load.sh $(BUILD_DIR) $(LOAD_SECONDS)

# `make soak`: the same load for SOAK_SECONDS (10 minutes by default) with 40 slow clients
# beside it, reporting every minute.
soak: load-build
	./scripts/load.sh $(BUILD_DIR) $(SOAK_SECONDS) --report-every 60 --slow 40

# `make test-browser`: the browser console (src/http/console) in a real headless Chromium,
# driven by Selenium against dme-device-server (tests/browser); the screenshot of the main page
# is written to $(BUILD_DIR)/console.png.
BROWSER_PACKAGES := chromium chromium-driver python3-selenium

.PHONY: test-browser

test-browser: configure
	@./scripts/install-deps.sh $(BROWSER_PACKAGES)
	cmake --build $(BUILD_DIR) -j $(JOBS) --target dme-device-server
	tests/browser/run_console_test.sh $(BUILD_DIR)/dme-device-server $(BUILD_DIR)

# `make check-format`: every C++ file of the repository follows .clang-format.
# `make tidy`: clang-tidy with the checks of .clang-tidy on every source of the libraries, any
# finding an error. Both run in CI.
STYLE_PACKAGES := clang-format clang-tidy git

.PHONY: check-format tidy

check-format:
	@./scripts/install-deps.sh $(STYLE_PACKAGES)
	git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

tidy: configure
	@./scripts/install-deps.sh $(STYLE_PACKAGES)
	git ls-files 'src/*.cpp' 'common/src/*.cpp' | xargs -P $(JOBS) -n 4 clang-tidy -p $(BUILD_DIR) --quiet
