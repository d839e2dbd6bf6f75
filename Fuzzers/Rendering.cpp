#include "Fuzzers/Rendering.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/ValueConversion.h"
#include "Fuzzers/Checks.h"
#include "Fuzzers/WorkEstimate.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::fuzz {

// A host's object, with a list that is read where it is.
struct Shelf {
  double total(double factor) const { return static_cast<double>(numbers.size()) * factor; }

  std::string label = "shelf";
  std::vector<double> numbers = {3, 1.5, -2};
};

void describeHostClass(HostClass<Shelf>& shelf) {
  shelf.name("Shelf")
      .description([](const Shelf& object) { return object.label; })  // an address would differ from run to run
      .property("label", &Shelf::label)
      .property("numbers", &Shelf::numbers)
      .method("total:", &Shelf::total);
}

namespace {

// What one execution has led to.
struct Outcome {
  std::string output;
  std::string diagnostics;
  std::string raised;
};

void requireSame(const Outcome& found, const Outcome& expected, std::string_view what) {
  requireEqual(found.output, expected.output, what);
  requireEqual(found.diagnostics, expected.diagnostics, what);
  requireEqual(found.raised, expected.raised, what);
}

// The largest collection among a value's parts, those included that operators may put together: all of them at once.
std::size_t countParts(const Value& value) {
  std::size_t count = 1;
  if (const auto* array = value.as<NSArray>()) {
    for (const Value& element : array->elements()) count += countParts(element);
  } else if (const auto* dictionary = value.as<NSDictionary>()) {
    for (const NSDictionary::Entry& entry : dictionary->entries()) count += countParts(entry.value);
  }
  return count;
}

// The deepest functions with which a template ends soon; absent where it does not without any.
std::optional<std::int32_t> functionDepthFor(KorTemplate& compiled, std::size_t elements) {
  constexpr double kMostWork = 1500;
  for (const int depth : {8, 3, 1, 0}) {
    if (estimateWork(compiled, elements, depth) <= kMostWork) return depth;
  }
  return {};
}

// An environment with what the host has, and the streams to read from.
class Host {
 public:
  Host(const Ref<NSDictionary>& data, const KorTemplateLimits& limits) {
    environment_->setLimits(limits);
    environment_->setErrorStream(diagnostics_);
    environment_->setOutputStream(output_);
    environment_->setGlobal("shelf", std::ref(shelf_));
    environment_->setGlobal("numbers", std::ref(shelf_.numbers));
    environment_->setFunction("same", [](const Value& value) { return value; });
    environment_->setFunction("sum", [](double left, double right) { return left + right; });
    environment_->setFunction("fail", [](const std::string& reason) -> Value { throw std::runtime_error(reason); });
    environment_->setFunction(
        "raise", [](const std::string& reason) -> Value { NSException::raise(NSGenericException, "%s", reason); });
    for (const NSDictionary::Entry& entry : data->entries()) {
      if (!entry.key->view().empty()) environment_->setValueForGlobalVariableWithName(entry.value, entry.key->view());
    }
    environment_->remember();
  }

  // Another way for the output, on which the engine writes each piece by itself, and somebody who hears of everything.
  void observe() {
    environment_->setOutputStream(
        KorTemplateCallbackStream::streamWithCallback([this](std::string_view piece) { gathered_ += piece; }, 0));
    const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
    observer->setCallback([](const KorTemplateObservation& observation) {
      require(!observation.text().empty(), "An observation has a text");
    });
    environment_->setObserver(observer);
  }

  Outcome run(KorTemplate& compiled) {
    const KorTemplateStack& stack = *environment_->stack();
    Outcome outcome;
    const test::parsing::Raised raised =
        test::parsing::raisedBy([&] { compiled.executeWithEnvironment(environment_.get()); });
    require(environment_->stack().get() == &stack, "The stack is the same afterwards");
    require(stack.firstFrame() != nullptr && stack.firstFrame() == stack.currentFrame(), "All scopes are left");
    if (!raised.name.empty()) outcome.raised = raised.text();
    checkFailure(raised);
    outcome.output = gathered_ + std::string(output_->buffer()->string());
    outcome.diagnostics = std::string(diagnostics_->buffer()->string());
    return outcome;
  }

  // As new for another execution.
  void reset() {
    environment_->reset();
    for (const Ref<KorTemplateStringStream>& stream : {output_, diagnostics_}) {
      stream->setBuffer(NSMutableString::mutableString());
    }
  }

  void requireOneFrame() const {
    require(environment_->stack()->frames().count() == 1, "The stack has the frame that it had");
  }

 private:
  void checkFailure(const test::parsing::Raised& raised) const {
    const KorTemplateFailure* const failure = environment_->lastFailure();
    require((failure != nullptr) == !raised.name.empty(), "A failure is told of what was raised");
    if (failure == nullptr) return;
    requireEqual(failure->reason(), raised.reason, "A failure has the reason of what was raised");
    require(!failure->text().empty(), "A failure has a text");
  }

  Shelf shelf_;
  std::string gathered_;
  Ref<KorTemplateStringStream> output_ = KorTemplateStringStream::stringStream();
  Ref<KorTemplateStringStream> diagnostics_ = KorTemplateStringStream::stringStream();
  Ref<KorTemplateEnvironment> environment_ = KorTemplateEnvironment::environment();
};

// A copy of which only the first statements are left.
Ref<KorTemplate> beginningOf(KorTemplate& compiled, std::int32_t count) {
  const Ref<KorTemplate> beginning = makeRef<KorTemplate>();
  beginning->setSource(compiled.source());
  for (std::int32_t index = 0; index < count; ++index) beginning->addStatement(compiled.statements().at(index));
  return beginning;
}

void addFault(KorTemplate& compiled) {
  static const Ref<KorTemplate> fault = KorTemplate::compile("<?= 1 % 0 ?>");
  compiled.addStatement(fault->statements().at(0));
}

}  // namespace

void checkRendering(const Ref<KorTemplate>& compiled, const Ref<NSDictionary>& data) {
  const std::size_t elements = std::max(countParts(data), Shelf().numbers.size());
  const std::optional<std::int32_t> functionDepth = functionDepthFor(*compiled, elements);
  if (!functionDepth.has_value()) return;
  KorTemplateLimits limits;
  limits.functionDepth = *functionDepth;
  limits.regexRetries = 500;
  limits.stringLength = 1000;

  Host host(data, limits);
  const Outcome expected = host.run(*compiled);
  host.reset();
  requireSame(host.run(*compiled), expected, "A reset environment renders the same");
  host.requireOneFrame();

  Host observed(data, limits);
  observed.observe();
  requireSame(observed.run(*compiled), expected, "Another stream and an observer make no difference");

  const std::int32_t count = compiled->statements().count();
  const Outcome beginning = Host(data, limits).run(*beginningOf(*compiled, count / 2));
  requirePrefix(beginning.output, expected.output, "Output begins with that of the first statements");
  requirePrefix(beginning.diagnostics, expected.diagnostics, "Diagnostics begin with those of the first statements");
  if (!beginning.raised.empty()) requireSame(expected, beginning, "What fails at first fails as a whole");

  const Ref<KorTemplate> failing = beginningOf(*compiled, count);
  addFault(*failing);
  const Outcome failed = Host(data, limits).run(*failing);
  requireEqual(failed.output, expected.output, "A failure at the end leaves what was written");
  requireEqual(failed.diagnostics, expected.diagnostics, "A failure at the end leaves the diagnostics");
  if (!expected.raised.empty())
    requireEqual(failed.raised, expected.raised, "The first failure is the one that counts");
}

}  // namespace tavlo::fuzz
