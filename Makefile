# The two commands of README are `make demo` and `make test`; each sets up a fresh Debian machine first.
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 30
MUTANTS ?= 30
MUTANTS_SEED ?= 1
SUBSYSTEMS ?=
CMAKE_CONFIGURE = cmake -G Ninja -S . -Wno-dev

.PHONY: demo test test-sanitize test-tsan bench fuzz mutants build deps format format-check check-layers clean

demo: build
	build/bin/keel demo

test: build
	ctest --test-dir build --output-on-failure -j $(JOBS)

build: deps
	$(CMAKE_CONFIGURE) -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build build -j $(JOBS)

test-sanitize: deps
	$(CMAKE_CONFIGURE) -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DKEEL_SANITIZE=ON
	cmake --build build-sanitize -j $(JOBS)
	ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --test-dir build-sanitize --output-on-failure -j $(JOBS)

test-tsan: deps
	$(CMAKE_CONFIGURE) -B build-tsan -DCMAKE_BUILD_TYPE=Debug -DKEEL_TSAN=ON
	cmake --build build-tsan -j $(JOBS)
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure -j $(JOBS) -R '^((platform|values)[.]|formula[.](TopLevel|WithFormula|DeferredEval))'

bench: deps
	$(CMAKE_CONFIGURE) -B build-bench -DCMAKE_BUILD_TYPE=Release -DKEEL_BUILD_TESTS=OFF -DKEEL_BUILD_BENCH=ON
	cmake --build build-bench -j $(JOBS)
	for b in build-bench/bin/*_bench; do echo "== $$b"; $$b || exit 1; done

fuzz: deps
	CXX=clang++ $(CMAKE_CONFIGURE) -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKEEL_BUILD_TESTS=OFF \
		-DKEEL_BUILD_FUZZ=ON -DCMAKE_CXX_FLAGS="-fsanitize=fuzzer-no-link,address,undefined"
	cmake --build build-fuzz -j $(JOBS)
	for f in build-fuzz/bin/*_fuzz; do \
		name=$$(basename $$f); mkdir -p build-fuzz/corpus/$$name; \
		echo "== $$name for $(FUZZ_SECONDS) s"; \
		$$f -max_total_time=$(FUZZ_SECONDS) -timeout=10 -rss_limit_mb=2048 \
			$$(cat fuzz/$$name.options 2>/dev/null) \
			build-fuzz/corpus/$$name fuzz/corpus/$$name || exit 1; \
	done

# A sample of MUTANTS small faults a subsystem, drawn with MUTANTS_SEED; the report names the survivors.
mutants: deps
	$(CMAKE_CONFIGURE) -B build-mutants -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE=-O1
	cmake --build build-mutants -j $(JOBS)
	python3 tools/mutants/mutants.py --build-dir build-mutants --seed $(MUTANTS_SEED) --count $(MUTANTS) $(if $(MUTANTS_AGAINST),--against $(MUTANTS_AGAINST)) $(SUBSYSTEMS)

deps:
	@cmake/install-deps.sh

format:
	git ls-files '*.h' '*.cpp' | xargs clang-format -i

format-check:
	git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run --Werror

check-layers:
	python3 tools/check-layers.py

clean:
	rm -rf build build-sanitize build-tsan build-bench build-fuzz build-mutants
