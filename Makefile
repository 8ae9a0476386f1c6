# Thin wrapper over CMake. `make test` installs missing Debian packages, builds and runs ctest.
BUILD_DIR ?= build
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= $(shell nproc)
PACKAGES := cmake g++ make pkg-config libcxxtools-dev libgtest-dev libgmock-dev

.PHONY: all deps configure build test install clean

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

clean:
	rm -rf $(BUILD_DIR)
