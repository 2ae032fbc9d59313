# Thin front door: `make run` starts Vorlix, `make test` runs the test suites.
# Both install what a fresh Debian 12 machine lacks first (scripts/setup.sh is idempotent).
BUILD ?= build
CMAKE_FLAGS ?=
CTEST_FLAGS ?=

FUZZ_SECONDS ?= 60

.PHONY: setup configure build run test sanitize fuzz clean deb deb-check

setup:
	bash scripts/setup.sh

configure: setup
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: configure
	cmake --build $(BUILD)

run: build
	$(BUILD)/bin/vorlix

test: build
	cd $(BUILD) && ctest --output-on-failure $(CTEST_FLAGS)

# Sanitized debug code runs several times slower: give test functions and suites more time.
# SANITIZE_SUITES="core|queue" limits the run to those suites.
SANITIZE_SUITES ?=
sanitize:
	QTEST_FUNCTION_TIMEOUT=1800000 $(MAKE) test BUILD=build-asan CMAKE_FLAGS="-DVORLIX_SANITIZE=ON -DCMAKE_BUILD_TYPE=Debug" \
		CTEST_FLAGS="--timeout 3600 $(if $(SANITIZE_SUITES),-R '^($(SANITIZE_SUITES))\$$\$$')"

# Every libFuzzer harness for FUZZ_SECONDS each (clang, ASan + UBSan).
fuzz: setup
	cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DVORLIX_FUZZ=ON -DVORLIX_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-fuzz --target fuzzers
	bash fuzz/run.sh build-fuzz/fuzz $(FUZZ_SECONDS)

# A Debian package of the install tree (build/vorlix_<version>_amd64.deb); deb-check unpacks and runs it.
deb: build
	cd $(BUILD) && cpack -G DEB

deb-check: deb
	bash scripts/deb-check.sh $(BUILD)

clean:
	rm -rf build build-asan build-fuzz
