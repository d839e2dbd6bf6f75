#include <benchmark/benchmark.h>

#include "Foundation/HostClass.h"
#include "Foundation/Value.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateLiteralExpression.h"

namespace tavlo::benchmarks {

namespace {

double sum(double left, double right) {
  return left + right;
}

// An object of a host, and its method.
struct Adder {
  double sum(double left, double right) const { return left + right; }
};

void describeHostClass(HostClass<Adder>& adder) {
  adder.name("Adder").method("sum:and:", &Adder::sum);
}

// What a template does at "sum(1.5, 2.25)": finds the function, collects the values, calls and takes the result.
void callSum(benchmark::State& state, const Ref<KorTemplateEnvironment>& environment) {
  const auto call = KorTemplateFunctionCallExpression::expressionWithFunctionName("sum");
  call->addArgumentExpression(KorTemplateLiteralExpression::expressionWithLiteral(1.5));
  call->addArgumentExpression(KorTemplateLiteralExpression::expressionWithLiteral(2.25));
  environment->enter([&] {
    if (Value::adopt(call->evaluate(*environment)).doubleValue() != 3.75) state.SkipWithError("a wrong sum");
    for (auto _ : state) benchmark::DoNotOptimize(Value::adopt(call->evaluate(*environment)));
  });
}

void callBoundFunction(benchmark::State& state) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setFunction("sum", sum);
  callSum(state, environment);
}

void callBoundMethod(benchmark::State& state) {
  Adder adder;
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("sum:and:", adder), "sum");
  callSum(state, environment);
}

// The function alone, as other code of the engine's would call it.
void invokeBoundFunction(benchmark::State& state) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateFunction> function = callableFunction("sum", sum);
  const Value arguments[] = {1.5, 2.25};
  for (auto _ : state) benchmark::DoNotOptimize(Value::adopt(function->invoke(*environment, arguments)));
}

BENCHMARK(callBoundFunction);
BENCHMARK(callBoundMethod);
BENCHMARK(invokeBoundFunction);

}  // namespace

}  // namespace tavlo::benchmarks
