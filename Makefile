# Entry points for people and CI. Every target sets up what it needs itself.
BUILD_DIR ?= build
CMAKE_FLAGS ?=
ifeq ($(CI),true)
CMAKE_FLAGS += -DVORNA_WERROR=ON
endif

.PHONY: all deps configure build test bench run clean format

all: build

deps:
	@scripts/install-deps

configure: deps
	@cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR)

test: build
	@ctest --test-dir $(BUILD_DIR) --output-on-failure -j2

bench: build
	@scripts/run-benchmarks $(BUILD_DIR)

run: build
	@scripts/run-editor $(BUILD_DIR) examples/site

format:
	@find src tests bench -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	@rm -rf $(BUILD_DIR)
