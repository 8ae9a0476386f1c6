# Thin wrapper over CMake. `make test` installs missing Debian packages, builds and runs ctest.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
PACKAGES := cmake g++ make pkg-config libcxxtools-dev libgtest-dev libgmock-dev \
    libmicrohttpd-dev libcurl4-openssl-dev curl

# `make bench`: the benchmarks, built in Release in their own directory; never run by `make test`.
BENCH_DIR ?= build-bench
BENCH_PACKAGES := libbenchmark-dev rapidjson-dev
BENCH_ARGS ?=

.PHONY: all deps configure build test install clean bench demo

all: build

deps:
	@./scripts/install-deps.sh $(PACKAGES)

configure: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)

build: configure
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	cd $(BUILD_DIR) && ctest --output-on-failure -j $(JOBS)

install: build
	cmake --install $(BUILD_DIR)

# `make demo`: the example gateway served over HTTP in the foreground (PORT=NNNN to move it).
PORT ?= 8080
demo: configure
	cmake --build $(BUILD_DIR) -j $(JOBS) --target dme-device-server
	$(BUILD_DIR)/dme-device-server --port $(PORT)

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
# scripts/fetch-armhf-packages.sh). The HTTP binding and the benchmarks are left out; the install
# test is skipped because it builds its consumer with the build machine's own compiler.
ARMHF_BUILD_DIR ?= build-armhf
ARMHF_ROOT ?= build-armhf-packages
ARMHF_HOST_PACKAGES := cmake make pkg-config crossbuild-essential-armhf qemu-user
ARMHF_TARGET_PACKAGES := libcxxtools10 libcxxtools-dev libssl3 libgtest-dev libgmock-dev

.PHONY: armhf-deps armhf-build check-armhf

armhf-deps:
	@./scripts/install-deps.sh $(ARMHF_HOST_PACKAGES)
	@./scripts/fetch-armhf-packages.sh $(ARMHF_ROOT) $(ARMHF_TARGET_PACKAGES)

armhf-build: armhf-deps
	cmake -S . -B $(ARMHF_BUILD_DIR) -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
	    -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/armhf-toolchain.cmake \
	    -DDME_ARMHF_ROOT=$(abspath $(ARMHF_ROOT))/root -DDME_BUILD_HTTP=OFF -DDME_BUILD_BENCH=OFF
	cmake --build $(ARMHF_BUILD_DIR) -j $(JOBS)

check-armhf: armhf-build
	cd $(ARMHF_BUILD_DIR) && ctest --output-on-failure -j $(JOBS) -E '^install-and-consume$$'
