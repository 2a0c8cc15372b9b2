# The two everyday commands: `make demo` and `make test`. Builds are incremental in build/.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps configure build test demo bench mpi-bench peer-bench tetra-bench isoline-bench python python-bench clean tsan fuzz-asan format format-check

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: deps configure
	cmake --build $(BUILD) -j $(JOBS)

test: build tsan fuzz-asan
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The parallel engine's tests in a race-detector build; any report fails. The scheduler's library is
# not instrumented, so its calls into intercepted functions (allocation, copies) carry no
# happens-before edges and are ignored; races in our code are still reported.
TSAN_BUILD ?= build-tsan
tsan: deps
	@[ -f $(TSAN_BUILD)/CMakeCache.txt ] || cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DVXISO_SANITIZE=thread -DVXISO_BUILD_BENCH=OFF > /dev/null
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target test_extractor
	TSAN_OPTIONS="halt_on_error=1 exitcode=66 ignore_noninstrumented_modules=1 suppressions=$(CURDIR)/tests/tsan.supp" \
		$(TSAN_BUILD)/bin/test_extractor --gtest_filter='SlabThreads.*:ParallelSlabs.*:SlabExtraction.*' --gtest_brief=1

# The volume readers under the address and undefined-behaviour sanitizers: their tests, then a
# bounded libFuzzer run over every file format from the seeds in tests/io/fuzz-seeds. Clang builds
# this one (libFuzzer); only the readers and what they stand on are compiled.
ASAN_BUILD ?= build-asan
FUZZ_RUNS ?= 20000
fuzz-asan: deps
	@[ -f $(ASAN_BUILD)/CMakeCache.txt ] || CC=clang CXX=clang++ cmake -S . -B $(ASAN_BUILD) \
		-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVXISO_SANITIZE=address,undefined -DVXISO_FUZZ=ON \
		-DVXISO_BUILD_BENCH=OFF > /dev/null
	cmake --build $(ASAN_BUILD) -j $(JOBS) --target test_io_readers fuzz_volume_readers
	UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 $(ASAN_BUILD)/bin/test_io_readers --gtest_brief=1 \
		--gtest_filter='-*ByVtk*:*WrittenByVtk*:*RealData*'
	@mkdir -p $(ASAN_BUILD)/fuzz-corpus
	@echo "fuzz_volume_readers: $(FUZZ_RUNS) runs (log in $(ASAN_BUILD)/fuzz.log)"
	@UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1 $(ASAN_BUILD)/bin/fuzz_volume_readers -runs=$(FUZZ_RUNS) \
		-max_len=4096 -artifact_prefix=$(ASAN_BUILD)/ $(ASAN_BUILD)/fuzz-corpus tests/io/fuzz-seeds \
		> $(ASAN_BUILD)/fuzz.log 2>&1 || { tail -n 60 $(ASAN_BUILD)/fuzz.log; exit 1; }
	@grep '^Done' $(ASAN_BUILD)/fuzz.log

# The Python module alone, into $(BUILD)/python (PYTHONPATH=$(BUILD)/python /usr/bin/python3).
python: deps configure
	cmake --build $(BUILD) -j $(JOBS) --target vxiso_python

# vxiso.marching_cubes against scikit-image and VTK's flying edges, one thread, in one process.
python-bench: python
	PYTHONPATH=$(BUILD)/python /usr/bin/python3 bench/python_bench.py

demo: build
	@scripts/demo.sh $(BUILD)

bench: build
	$(BUILD)/bin/vxiso_bench --benchmark_counters_tabular=true

# Side by side with VTK's flying edges; built only where VTK 9 (libvtk9-dev) is installed. First both
# warm in one process, then cold: a fresh process per run, ours and the peer's interleaved.
COLD_RUNS ?= 7
# vxiso-mpi on 1, 2 and 4 ranks of this machine under a per-rank memory limit (bench/mpi_bench.sh).
mpi-bench: deps configure
	cmake --build $(BUILD) -j $(JOBS) --target vxiso-mpi vxiso_gyroid_raw
	bench/mpi_bench.sh $(BUILD)

peer-bench: deps configure
	@cmake --build $(BUILD) -j $(JOBS) --target vxiso_peer_bench vxiso vxiso_package || \
	  { echo "peer-bench: vxiso_peer_bench did not build (it needs VTK 9: libvtk9-dev)"; exit 1; }
	$(BUILD)/bin/vxiso_peer_bench
	$(BUILD)/bin/vxiso_peer_bench --cold --runs $(COLD_RUNS)

# VxIsoTetra against VTK's vtkContour3DLinearGrid and vtkContourGrid on 6 million tetrahedra, one
# thread; built only where VTK 9 is installed.
tetra-bench: deps configure
	@cmake --build $(BUILD) -j $(JOBS) --target vxiso_tetra_bench || \
	  { echo "tetra-bench: vxiso_tetra_bench did not build (it needs VTK 9: libvtk9-dev)"; exit 1; }
	$(BUILD)/bin/vxiso_tetra_bench

# Contour lines of a 2048 x 2048 sampled slice at 10 values against vtkFlyingEdges2D and contourpy, one
# thread; built only where VTK 9 is installed (contourpy is skipped when python3-contourpy is not).
isoline-bench: deps configure
	@cmake --build $(BUILD) -j $(JOBS) --target vxiso_isoline_bench || \
	  { echo "isoline-bench: vxiso_isoline_bench did not build (it needs VTK 9: libvtk9-dev)"; exit 1; }
	$(BUILD)/bin/vxiso_isoline_bench

# Every C++ file as the repository's .clang-format writes it (clang-format 14 from Debian).
format: deps
	git ls-files '*.cpp' '*.h' | xargs clang-format -i

format-check: deps
	@scripts/check-format.sh

clean:
	rm -rf $(BUILD)
