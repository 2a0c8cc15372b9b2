# The two everyday commands: `make demo` and `make test`. Builds are incremental in build/.
BUILD ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?= -DCMAKE_BUILD_TYPE=Release

.PHONY: all deps configure build test demo bench clean tsan

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

clean:
	rm -rf $(BUILD)
