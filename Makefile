# Entry points for a Linux workstation. Every target that builds first makes sure the Debian
# packages it needs are installed (scripts/install-deps is idempotent).

BUILD_DIR ?= build
GENERATOR := -G Ninja
SANITIZE_ASAN := -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer
SANITIZE_TSAN := -fsanitize=thread -fno-omit-frame-pointer
export ASAN_OPTIONS := detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS := print_stacktrace=1:halt_on_error=1
export TSAN_OPTIONS := halt_on_error=1:second_deadlock_stack=1

.PHONY: all deps demo test test-asan test-tsan bench format lint

all: demo

deps:
	@scripts/install-deps

# The main job: the voxa program loading libvoxa and driving it as a client.
demo: deps
	cmake -S . -B $(BUILD_DIR)/release $(GENERATOR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVOXA_BUILD_TESTS=OFF
	cmake --build $(BUILD_DIR)/release --target voxa libvoxa
	$(BUILD_DIR)/release/tools/voxa transcribe --timestamps

test: deps test-asan test-tsan

# Every test, under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	cmake -S . -B $(BUILD_DIR)/asan $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug \
	    -DCMAKE_C_FLAGS="$(SANITIZE_ASAN)" -DCMAKE_CXX_FLAGS="$(SANITIZE_ASAN)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE_ASAN)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE_ASAN)" \
	    -DCMAKE_MODULE_LINKER_FLAGS="$(SANITIZE_ASAN)"
	cmake --build $(BUILD_DIR)/asan
	ctest --test-dir $(BUILD_DIR)/asan --output-on-failure --timeout 600

# The concurrency tests again, under ThreadSanitizer.
test-tsan:
	cmake -S . -B $(BUILD_DIR)/tsan $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DVOXA_CONCURRENCY_TESTS_ONLY=ON \
	    -DVOXA_BUILD_ENGINE=ON \
	    -DCMAKE_C_FLAGS="$(SANITIZE_TSAN)" -DCMAKE_CXX_FLAGS="$(SANITIZE_TSAN)" \
	    -DCMAKE_EXE_LINKER_FLAGS="$(SANITIZE_TSAN)" -DCMAKE_SHARED_LINKER_FLAGS="$(SANITIZE_TSAN)" \
	    -DCMAKE_MODULE_LINKER_FLAGS="$(SANITIZE_TSAN)"
	cmake --build $(BUILD_DIR)/tsan
	ctest --test-dir $(BUILD_DIR)/tsan --output-on-failure --timeout 600 -L concurrency

bench: deps
	cmake -S . -B $(BUILD_DIR)/bench $(GENERATOR) -DCMAKE_BUILD_TYPE=Release -DVOXA_BUILD_TESTS=OFF \
	    -DVOXA_BUILD_BENCH=ON
	cmake --build $(BUILD_DIR)/bench
	set -e; for b in $$(find $(BUILD_DIR)/bench/bench -type f -executable -name "bench_*" | sort); do echo "== $$b"; $$b; done

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

# clang-tidy with .clang-tidy over the library, the host platform and the tools; the interface's
# generated headers are built first.
lint: deps
	cmake -S . -B $(BUILD_DIR)/lint $(GENERATOR) -DCMAKE_BUILD_TYPE=Debug -DVOXA_BUILD_TESTS=OFF
	cmake --build $(BUILD_DIR)/lint --target vendor.orbo.hardware.voxa-V3-ndk
	run-clang-tidy -quiet -j $$(nproc) -p $(BUILD_DIR)/lint '$(CURDIR)/(service|host|tools)/'
