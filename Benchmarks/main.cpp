#include <benchmark/benchmark.h>
#include <malloc.h>

namespace {

// What is freed stays with the process: how the system hands out pages, which costs much at some sizes and nothing at
// others, is no part of what is measured, neither here nor in the baselines.
void keepFreedMemory() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
}

}  // namespace

int main(int argc, char** argv) {
  keepFreedMemory();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
