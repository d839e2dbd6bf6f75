#include "Benchmarks/Fibonacci.h"

namespace tavlo::benchmarks {

[[gnu::noinline]] double fibonacci(double number) {
  if (number < 2) return number;
  return fibonacci(number - 1) + fibonacci(number - 2);
}

}  // namespace tavlo::benchmarks
