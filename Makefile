# Entry points for a Linux workstation. Every target that builds first makes sure the Debian
# packages it needs are installed (scripts/install-deps is idempotent).

BUILD_DIR ?= build
GENERATOR := -G Ninja
SANITIZE_ASAN := -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
SANITIZE_TSAN := -fsanitize=thread -fno-omit-frame-pointer
SANITIZE_FUZZ := -fsanitize=address,undefined,fuzzer-no-link -fno-sanitize-recover=all -fno-omit-frame-pointer
LINK_FUZZ := -fsanitize=address,undefined
# Seconds each fuzz target runs in make fuzz.
FUZZ_SECONDS ?= 600
export ASAN_OPTIONS := detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS := print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS := halt_on_error=1:second_deadlock_stack=1

.PHONY: all deps demo test test-asan test-tsan test-thread-safety test-fuzz test-bench fuzz \
	fuzz-build stress bench bench-build format check-headers lint

all: demo

deps:
	@scripts/install-deps

# The main job: the voxa program loading libvoxa and driving it as a client.
demo: deps
	cmake -S . -B $(BUILD_DIR)/release $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOXA_BUILD_TESTS=OFF
	cmake --build $(BUILD_DIR)/release --target voxa libvoxa
	$(BUILD_DIR)/release/tools/voxa transcribe --timestamps

test: deps check-headers test-thread-safety test-asan test-tsan test-fuzz test-bench

# cmake's configure step for a build directory with sanitizer flags: $(call configure,DIR,FLAGS,...)
configure = cmake -S . -B $(BUILD_DIR)/$(1) $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug \
	    -DCMAKE_C_FLAGS="$(2)" -DCMAKE_CXX_FLAGS="$(2)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(2)" -DCMAKE_SHARED_LINKER_FLAGS="$(2)" \
	    -DCMAKE_MODULE_LINKER_FLAGS="$(2)" $(3)
CONFIGURE_ASAN := $(call configure,asan,$(SANITIZE_ASAN))
CONFIGURE_TSAN := $(call configure,tsan,$(SANITIZE_TSAN),-DVOXA_CONCURRENCY_TESTS_ONLY=ON -DVOXA_BUILD_ENGINE=ON)

# Every test, under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	$(CONFIGURE_ASAN)
	cmake --build $(BUILD_DIR)/asan
	ctest --test-dir $(BUILD_DIR)/asan --output-on-failure --timeout 600

# The concurrency tests again, under ThreadSanitizer.
test-tsan:
	$(CONFIGURE_TSAN)
	cmake --build $(BUILD_DIR)/tsan
	ctest --test-dir $(BUILD_DIR)/tsan --output-on-failure --timeout 600 -L concurrency

# The stress test at length, under ThreadSanitizer and then AddressSanitizer.
STRESS_OPERATIONS ?= 800000
stress: deps
	$(CONFIGURE_TSAN)
	cmake --build $(BUILD_DIR)/tsan --target service_stress_test
	VOXA_STRESS_OPERATIONS=$(STRESS_OPERATIONS) $(BUILD_DIR)/tsan/tests/service/service_stress_test
	$(CONFIGURE_ASAN)
	cmake --build $(BUILD_DIR)/asan --target service_stress_test
	VOXA_STRESS_OPERATIONS=$(STRESS_OPERATIONS) $(BUILD_DIR)/asan/tests/service/service_stress_test

# The service's lock discipline, proved at compile time by clang's thread-safety analysis.
test-thread-safety:
	cmake -S . -B $(BUILD_DIR)/thread-safety $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug \
	    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_CXX_FLAGS="-Wthread-safety" \
	    -DVOXA_BUILD_TESTS=OFF -DVOXA_BUILD_ENGINE=OFF
	cmake --build $(BUILD_DIR)/thread-safety --target voxa_service

# The libFuzzer targets under AddressSanitizer and UndefinedBehaviorSanitizer.
fuzz-build:
	cmake -S . -B $(BUILD_DIR)/fuzz $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug \
	    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	    -DVOXA_BUILD_TESTS=OFF -DVOXA_BUILD_ENGINE=OFF -DVOXA_BUILD_FUZZERS=ON \
	    -DCMAKE_C_FLAGS="$(SANITIZE_FUZZ)" -DCMAKE_CXX_FLAGS="$(SANITIZE_FUZZ)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(LINK_FUZZ)" -DCMAKE_SHARED_LINKER_FLAGS="$(LINK_FUZZ)"
	cmake --build $(BUILD_DIR)/fuzz

# Every target replays its seed corpus, then looks for new inputs for a few seconds.
test-fuzz: fuzz-build
	scripts/run-fuzzers $(BUILD_DIR)/fuzz 5

fuzz: deps fuzz-build
	scripts/run-fuzzers $(BUILD_DIR)/fuzz $(FUZZ_SECONDS)

bench-build:
	cmake -S . -B $(BUILD_DIR)/bench $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DVOXA_BUILD_TESTS=OFF \
	    -DVOXA_BUILD_BENCH=ON
	cmake --build $(BUILD_DIR)/bench

# Runs every benchmark program, with $(1) before it (VOXA_BENCH_QUICK=1: each benchmark once on the
# least data).
run-benchmarks = set -e; for b in $$(find $(BUILD_DIR)/bench/bench -type f -executable \
	-name "bench_*" | sort); do echo "== $$b"; $(1) $$b; done

bench: deps bench-build
	$(call run-benchmarks,)

# Every benchmark still builds and runs, so that no change breaks make bench unseen.
test-bench: bench-build
	$(call run-benchmarks,VOXA_BENCH_QUICK=1)

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# Every header opens with a comment that says what it is for and guards itself with #ifndef.
check-headers:
	scripts/check-headers

# clang-tidy with .clang-tidy over the library, the host platform and the tools; the interface's
# generated headers are built first.
lint: deps check-headers
	cmake -S . -B $(BUILD_DIR)/lint $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DVOXA_BUILD_TESTS=OFF
	cmake --build $(BUILD_DIR)/lint --target vendor.orbo.hardware.voxa-V3-ndk
	run-clang-tidy -quiet -j $$(nproc) -p $(BUILD_DIR)/lint '$(CURDIR)/(service|host|tools)/'
