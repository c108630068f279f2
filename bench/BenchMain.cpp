// One binary for every benchmark of the project.
#include <benchmark/benchmark.h>

BENCHMARK_MAIN();
