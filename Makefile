# make demo | make test | make bench — each installs what is missing first. On a machine
# without make, ./run demo | ./run test | ./run bench install it (and all else) first.
# make test SANITIZE=address,undefined builds and tests with sanitizers in build-san/.
# make deps-check: the builds used nothing that scripts/deps does not install.
# make fresh-check: ./run test on a freshly made Debian 12 root (root only; heavy).
SANITIZE ?=
ifeq ($(SANITIZE),)
BUILD ?= build
BUILD_TYPE ?= RelWithDebInfo
else
BUILD ?= build-san
BUILD_TYPE ?= Debug
endif
JOBS ?= 2
DEMO_OUT ?= demo-out

.PHONY: deps configure build test demo bench clean deps-check fresh-check

deps:
	@bash scripts/deps

configure: deps
	@cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) \
	  -DKELP_SANITIZE=$(SANITIZE) >/dev/null

build: configure
	@cmake --build $(BUILD) -j$(JOBS)

test: build
	@ctest --test-dir $(BUILD) -j$(JOBS) --output-on-failure

demo: build
	@$(BUILD)/kelp_samples $(DEMO_OUT)/samples
	@$(BUILD)/kelp demo --out $(DEMO_OUT) --samples $(DEMO_OUT)/samples

bench: deps
	@cmake -S . -B build-bench -G Ninja -DCMAKE_BUILD_TYPE=Release -DKELP_BUILD_TESTS=OFF >/dev/null
	@cmake --build build-bench -j$(JOBS) --target kelp_bench
	@build-bench/bench/kelp_bench --benchmark_counters_tabular=true

deps-check:
	@bash scripts/deps-check

fresh-check:
	@bash scripts/fresh-check

clean:
	@rm -rf build build-san build-bench $(DEMO_OUT)
