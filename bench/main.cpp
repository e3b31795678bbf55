// The one entry point of kelp_bench; every other file here only registers benchmarks.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
