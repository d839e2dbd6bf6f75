
#include <algorithm>
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "Benchmarks/Rendering.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateLayer.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Examples/Catalogue.h"
#include "Tool/JSONReader.h"

// Compares what two threads render of one template, over globals that they share, with what one thread renders:
// tavlo_threads [ROUNDS].

namespace tavlo::benchmarks {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kTime = std::chrono::milliseconds(500);  // of a measurement

struct Page {
  Ref<KorTemplate> compiled;
  Ref<KorTemplateLayer> layer;
};

Page cataloguePage() {
  Page page{KorTemplate::compile(readSourceFile("Examples/catalogue/catalogue.tavlo")), KorTemplateLayer::layer()};
  const Ref<NSDictionary> data = readJSONObject(test::catalogueAsJSON(test::makeCatalogue(50)));
  for (const NSDictionary::Entry& entry : data->entries()) {
    page.layer->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
  page.layer->share();
  return page;
}

double processorSecondsOfThread() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Throughput {
  double perSecond = 0;           // of the clock, of all threads
  double perProcessorSecond = 0;  // of all threads, each at its own processor
};

// Where a thread's pages get their environments from.
enum class Environments { OneOfThread, OneForEachPage };

Ref<KorTemplateEnvironment> environmentFor(const Page& page, std::string& text) {
  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setOutputStream(KorTemplateStringStream::stringStreamAppendingTo(text));
  environment->setLayer(page.layer);
  environment->remember();
  return environment;
}

// Renders until the time is over, as a server does.
void renderUntil(const Page& page, Environments environments, const std::atomic<bool>& isOver, std::uint64_t& count) {
  std::string text;
  Ref<KorTemplateEnvironment> environment = environmentFor(page, text);
  while (!isOver.load(std::memory_order_relaxed)) {
    text.clear();
    page.compiled->executeWithEnvironment(environment.get());
    if (environments == Environments::OneOfThread) {
      environment->reset();
    } else {
      environment = environmentFor(page, text);
    }
    ++count;
  }
}

Throughput throughputOf(const Page& page, Environments environments, std::size_t threads) {
  std::atomic<bool> isOver{false};
  std::barrier start(static_cast<std::ptrdiff_t>(threads) + 1);
  std::vector<std::uint64_t> counts(threads);
  std::vector<double> seconds(threads);
  std::vector<std::thread> running;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    running.emplace_back([&, thread] {
      start.arrive_and_wait();
      std::uint64_t count = 0;  // apart from the other threads' ones
      const double before = processorSecondsOfThread();
      renderUntil(page, environments, isOver, count);
      seconds[thread] = processorSecondsOfThread() - before;
      counts[thread] = count;
    });
  }
  start.arrive_and_wait();
  const Clock::time_point before = Clock::now();
  std::this_thread::sleep_for(kTime);
  isOver = true;
  for (std::thread& thread : running) thread.join();
  const double clock = std::chrono::duration<double>(Clock::now() - before).count();
  Throughput sum;
  for (std::size_t thread = 0; thread < threads; ++thread) {
    sum.perSecond += static_cast<double>(counts[thread]) / clock;
    sum.perProcessorSecond += static_cast<double>(counts[thread]) / seconds[thread];
  }
  return sum;
}

double median(std::vector<double> ratios) {
  std::sort(ratios.begin(), ratios.end());
  return ratios[ratios.size() / 2];
}

void show(const char* what, const std::vector<double>& ratios) {
  std::printf("%-44s median %.2f, least %.2f, greatest %.2f\n", what, median(ratios),
              *std::min_element(ratios.begin(), ratios.end()), *std::max_element(ratios.begin(), ratios.end()));
}

void compare(const char* what, Environments environments, int rounds) {
  const Page page = cataloguePage();
  std::vector<double> byClock;
  std::vector<double> byProcessor;
  for (int round = 0; round < rounds; ++round) {
    const Throughput one = throughputOf(page, environments, 1);
    const Throughput two = throughputOf(page, environments, 2);
    byClock.push_back(two.perSecond / one.perSecond);
    byProcessor.push_back(two.perProcessorSecond / one.perProcessorSecond);
  }
  std::printf("%s, in %d rounds\n", what, rounds);
  show("by the clock, on a machine of its own", byClock);
  show("by the processor time that each thread gets", byProcessor);
}

}  // namespace

}  // namespace tavlo::benchmarks

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 11;
  if (argc > 2 || rounds < 1) {
    std::fputs("tavlo_threads [ROUNDS]\n", stderr);
    return 1;
  }
  std::puts("Two threads render as many times as much as one");
  using tavlo::benchmarks::compare;
  using tavlo::benchmarks::Environments;
  compare("with an environment for each thread, reset after each page", Environments::OneOfThread, rounds);
  compare("with an environment for each page", Environments::OneForEachPage, rounds);
  return 0;
}
