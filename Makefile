# Entry points for people and CI. Every target sets up what it needs itself.
BUILD_DIR ?= build
CMAKE_FLAGS ?=
ifeq ($(CI),true)
CMAKE_FLAGS += -DVORNA_WERROR=ON
endif

.PHONY: all deps configure build test bench run clean format package
.PHONY: test-asan test-tsan fuzz crash-campaign

# Hardening builds live in their own folders so they never disturb `build/`.
ASAN_BUILD_DIR ?= build-asan
TSAN_BUILD_DIR ?= build-tsan
FUZZ_BUILD_DIR ?= build-fuzz
FUZZ_SECONDS ?= 30
# Tests that need a display, or that run no native code of ours, stay out of
# the sanitizer runs: GLib and WebKit are not instrumented.
DISPLAY_TESTS = ^(app_live|smoke|e2e_.*|editor_app|crash_campaign|package)$$
UNIT_TEST_PROGRAMS = contracts_tests storage_tests durability_tests recovery_tests bridge_tests app_tests selftest_tests
# These run JavaScriptCore in the test process. It is built without the type
# information UBSan's vptr check reads, so releasing a shared_ptr from its
# destructors is reported as a type mismatch that is not one; they run with
# UBSan's reports non-fatal (AddressSanitizer still stops them).
JSC_TESTS = ^(PageScriptsTest)\.
ASAN_ENV = ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR)

test: build
	@ctest --test-dir $(BUILD_DIR) --output-on-failure -j2

# The Debian package, as $(BUILD_DIR)/vorna_VERSION_ARCH.deb.
package: build
	@cd $(BUILD_DIR) && cpack -G DEB

bench: build
	@scripts/run-benchmarks $(BUILD_DIR)

# Warnings are judged by the regular build: under the sanitizers' instrumentation
# GCC's flow analysis reports false positives inside the standard library.
test-asan: deps
	@cmake -S . -B $(ASAN_BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORNA_SANITIZE=ON -DVORNA_WERROR=OFF >/dev/null
	@cmake --build $(ASAN_BUILD_DIR) --target $(UNIT_TEST_PROGRAMS)
	@$(ASAN_ENV):halt_on_error=1 \
	  ctest --test-dir $(ASAN_BUILD_DIR) --output-on-failure -j2 -E '$(DISPLAY_TESTS)|$(JSC_TESTS)'
	@$(ASAN_ENV):halt_on_error=0 \
	  ctest --test-dir $(ASAN_BUILD_DIR) --output-on-failure -j2 -R '$(JSC_TESTS)'

test-tsan: deps
	@scripts/run-tsan-tests $(TSAN_BUILD_DIR)

fuzz: deps
	@scripts/run-fuzzers $(FUZZ_BUILD_DIR) $(FUZZ_SECONDS)

# Kills the real host at random moments while it saves; 300 rounds unless
# CRASH_ROUNDS says otherwise. A 30-round run is part of `make test`.
CRASH_ROUNDS ?= 300
crash-campaign: build
	@scripts/crash-campaign $(BUILD_DIR)/src/vorna $(CRASH_ROUNDS)

run: build
	@scripts/run-editor $(BUILD_DIR) examples/site

format:
	@find src tests bench -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR)
