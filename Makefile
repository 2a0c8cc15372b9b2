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

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

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
