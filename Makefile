# A thin convenience over CMake. `make demo` and `make test` set up everything on a fresh machine.
BUILD ?= build
ASAN_BUILD ?= build-asan
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: all deps build test test-release test-asan demo bench clean

all: build

deps:
	@bash scripts/install-deps.sh

$(BUILD)/build.ninja: CMakeLists.txt
	cmake -S . -B $(BUILD) -G Ninja $(CMAKE_FLAGS)

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

$(ASAN_BUILD)/build.ninja: CMakeLists.txt
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTZ3_SANITIZE=ON -DTZ3_BUILD_BENCH=OFF

# Every test, in the optimised build and again under AddressSanitizer and UndefinedBehaviorSanitizer.
test: deps test-release test-asan

test-release: $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)
	ctest --test-dir $(BUILD) -j $(JOBS) --output-on-failure

test-asan: $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
	  ctest --test-dir $(ASAN_BUILD) -j $(JOBS) --output-on-failure

# The sample test card and every effect built so far, under out/.
demo: build
	@bash scripts/demo.sh $(BUILD)/tz3 out

bench: build
	$(BUILD)/bench/tz3_bench --benchmark_repetitions=3 --benchmark_report_aggregates_only=true

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) out
