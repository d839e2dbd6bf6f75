#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks/TemplateText.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateParser.h"
#include "Source/KorTemplateVariableExpression.h"

// What is paid once, for a process or for a failure, and what grows with how deep the scopes are.

namespace tavlo::benchmarks {

namespace {

// A function of a template that fails, called as a template calls it; the diagnostic goes nowhere.
void callFailingFunction(benchmark::State& state) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setErrorStream(nullptr);
  KorTemplate::compile("<? function fail($n) ?><? return $n / 0 ?><? endfunction ?>")
      ->executeWithEnvironment(environment.get());
  const auto call = KorTemplateFunctionCallExpression::expressionWithFunctionName("fail");
  call->addArgumentExpression(KorTemplateVariableExpression::expressionWithVariable("one"));
  environment->setGlobal("one", 1);
  environment->enter([&] {
    for (auto _ : state) benchmark::DoNotOptimize(Value::adopt(call->evaluate(*environment)));
  });
}

[[gnu::noinline]] void raise(int number) {
  if (number >= 0) throw std::runtime_error("failed");
}

void throwAndCatch(benchmark::State& state) {
  for (auto _ : state) {
    try {
      raise(1);
    } catch (const std::exception& exception) {
      benchmark::DoNotOptimize(exception.what());
    }
  }
}

constexpr int kDepth = 1'000;

// A global, read from below so many scopes that hold a variable each.
void readThroughFrames(benchmark::State& state) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setGlobal("wanted", 1);
  for (int index = 0; index < kDepth; ++index) {
    const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
    frame->setValueForVariableWithName(index, "other");
    environment->stack()->push(frame);
  }
  const auto variable = KorTemplateVariableExpression::expressionWithVariable("wanted");
  environment->enter([&] {
    for (auto _ : state) benchmark::DoNotOptimize(Value::adopt(variable->evaluate(*environment)));
  });
}

// The same in a list of as many nodes, each as large as a scope, in the order in which they were made.
void walkLinkedList(benchmark::State& state) {
  struct Node {
    std::unique_ptr<Node> next;
    const void* key;
    int value;
    char rest[sizeof(KorTemplateStackFrame) - 3 * sizeof(void*)];
  };
  const int wanted = 0;
  const int other = 0;
  std::unique_ptr<Node> list(new Node{nullptr, &wanted, 1, {}});
  for (int index = 0; index < kDepth; ++index) list.reset(new Node{std::move(list), &other, index, {}});
  const void* key = &wanted;
  for (auto _ : state) {
    benchmark::DoNotOptimize(key);
    const Node* node = list.get();
    while (node != nullptr && node->key != key) node = node->next.get();
    benchmark::DoNotOptimize(node->value);
  }
  while (list != nullptr) list = std::move(list->next);
}

// How long the work takes in a process of its own, behind the preparation, in seconds.
template <class Preparation, class Work>
double secondsInChild(const Preparation& prepare, const Work& work) {
  int ends[2];
  if (pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child == 0) {
    prepare();
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    const double seconds = taken.count();
    _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
  }
  close(ends[1]);
  double seconds = 0;
  const bool isRead = read(ends[0], &seconds, sizeof seconds) == sizeof seconds;
  close(ends[0]);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !isRead) throw std::runtime_error("the process failed");
  return seconds;
}

// The tables that all templates of a process are compiled with. This process makes none, so that each child does.
void buildTables(benchmark::State& state) {
  for (auto _ : state) state.SetIterationTime(secondsInChild([] {}, KorTemplateParser::initialize));
}

void compileBehindTables(benchmark::State& state) {
  const std::string text = makeTemplateText(30);
  const auto compile = [&text] { benchmark::DoNotOptimize(KorTemplate::compile(text)); };
  for (auto _ : state) state.SetIterationTime(secondsInChild(KorTemplateParser::initialize, compile));
}

// Runs a program to its end, without input and output.
void startProgram(benchmark::State& state, std::vector<const char*> arguments) {
  arguments.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int descriptor : {0, 1}) {
    posix_spawn_file_actions_addopen(&actions, descriptor, "/dev/null", O_RDWR, 0);
  }
  char* none[] = {nullptr};
  for (auto _ : state) {
    pid_t child = 0;
    int status = 1;
    auto* const words = const_cast<char* const*>(arguments.data());  // NOLINT(*-const-cast): it changes nothing there
    const bool hasStarted = posix_spawn(&child, arguments.front(), &actions, nullptr, words, none) == 0;
    if (!hasStarted || waitpid(child, &status, 0) != child || status != 0) state.SkipWithError("the program failed");
  }
  posix_spawn_file_actions_destroy(&actions);
}

BENCHMARK(callFailingFunction);
BENCHMARK(throwAndCatch);
BENCHMARK(readThroughFrames);
BENCHMARK(walkLinkedList);
BENCHMARK(buildTables)->UseManualTime();
BENCHMARK(compileBehindTables)->UseManualTime();
BENCHMARK_CAPTURE(startProgram, tavlo, {TAVLO_PROGRAM, "render", "-"})->UseRealTime();
BENCHMARK_CAPTURE(startProgram, true, {"/bin/true"})->UseRealTime();

}  // namespace

}  // namespace tavlo::benchmarks
