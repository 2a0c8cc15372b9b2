# The two everyday commands: `make demo` and `make test`. Builds are incremental in build/.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps configure build test demo bench peer-bench clean tsan

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/CMakeCache.txt: | deps
	cmake -S . -B $(BUILD) $(CMAKE_FLAGS)

configure: $(BUILD)/CMakeCache.txt

build: deps configure
	cmake --build $(BUILD) -j $(JOBS)

test: build tsan
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The parallel engine's tests in a race-detector build; any report fails.
TSAN_BUILD ?= build-tsan
tsan: deps
	@[ -f $(TSAN_BUILD)/CMakeCache.txt ] || cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
		-DVXISO_SANITIZE=thread -DVXISO_BUILD_BENCH=OFF > /dev/null
	cmake --build $(TSAN_BUILD) -j $(JOBS) --target test_extractor
	TSAN_OPTIONS="halt_on_error=1 exitcode=66 suppressions=$(CURDIR)/tests/tsan.supp" \
		$(TSAN_BUILD)/bin/test_extractor --gtest_filter='SlabThreads.*:ParallelSlabs.*' --gtest_brief=1

demo: build
	@scripts/demo.sh $(BUILD)

bench: build
	$(BUILD)/bin/vxiso_bench --benchmark_counters_tabular=true

# Side by side with VTK's flying edges; built only where VTK 9 (libvtk9-dev) is installed.
peer-bench: deps configure
	@cmake --build $(BUILD) -j $(JOBS) --target vxiso_peer_bench || \
	  { echo "peer-bench: vxiso_peer_bench did not build (it needs VTK 9: libvtk9-dev)"; exit 1; }
	$(BUILD)/bin/vxiso_peer_bench

clean:
	rm -rf $(BUILD)
