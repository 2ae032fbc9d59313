# Thin front door: `make run` starts Vorlix, `make test` runs the test suites.
# Both install what a fresh Debian 12 machine lacks first (scripts/setup.sh is idempotent).
BUILD ?= build
CMAKE_FLAGS ?=

.PHONY: setup configure build run test sanitize clean

setup:
	bash scripts/setup.sh

configure: setup
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD)

run: build
	@if [ -x $(BUILD)/bin/vorlix ]; then $(BUILD)/bin/vorlix; else echo "Built. The program entry is not part of this build yet."; fi

test: build
	cd $(BUILD) && ctest --output-on-failure

sanitize:
	$(MAKE) test BUILD=build-asan CMAKE_FLAGS="-DVORLIX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug"

clean:
	rm -rf build build-asan
