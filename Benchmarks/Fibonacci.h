#pragma once

#include <string_view>

namespace tavlo::benchmarks {

// fib(22) in the template language: 57,313 calls.
inline constexpr std::string_view kFibonacciTemplate =
    "<? function fib($n) ?><? if ($n < 2) ?><? return $n ?><? endif ?>"
    "<? return fib($n - 1) + fib($n - 2) ?><? endfunction ?><?= fib(22) ?>";

// The same function on the numbers that the language has.
double fibonacci(double number);

}  // namespace tavlo::benchmarks
