# Entry points: `make run` and `make test` work on a fresh Debian bookworm
# machine (as root they install what is missing first).

JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=
GENERATE = cmake -S . -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

.PHONY: all deps bench-deps build run test asan tsan bench clean

all: build

deps:
	@scripts/bootstrap.sh

bench-deps:
	@scripts/bootstrap.sh --bench

build: deps
	$(GENERATE) -B build
	cmake --build build -j $(JOBS)

run: build
	@XDG_RUNTIME_DIR=$${XDG_RUNTIME_DIR:-$$(mktemp -d)} build/bin/qx tour

test: build
	scripts/run-tests.sh build

# The whole suite under AddressSanitizer and UndefinedBehaviorSanitizer.
asan: deps
	$(GENERATE) -B build-asan "-DQX_SANITIZE=address;undefined"
	cmake --build build-asan -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		scripts/run-tests.sh build-asan

# The whole suite under ThreadSanitizer. Qt's libraries are not instrumented:
# memory calls made inside them are ignored, and the library marks its own
# hand-offs through Qt (see src/platform/QXTsan_p.h). Suites start child
# processes from threaded ones, which ThreadSanitizer refuses unless told.
tsan: deps
	$(GENERATE) -B build-tsan -DQX_SANITIZE=thread
	cmake --build build-tsan -j $(JOBS)
	TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1 ignore_noninstrumented_modules=1 die_after_fork=0" \
		scripts/run-tests.sh build-tsan

bench: bench-deps
	cmake -S . -G Ninja -B build-bench -DCMAKE_BUILD_TYPE=Release -DQX_BUILD_BENCHMARKS=ON -DQX_BUILD_TESTS=OFF $(CMAKE_FLAGS)
	cmake --build build-bench -j $(JOBS)
	bench/run-all.sh build-bench

clean:
	rm -rf build build-asan build-tsan build-bench
