#include "Tests/Package/Plugin/Plugin.h"

namespace tavlo::test {

namespace {

class PluginException final : public NSException {
 public:
  PluginException() : NSException("PluginException", "the plug-in has failed") {}
};

class Fail final : public KorTemplateFunction {
 public:
  Value invokeWithEnvironment(KorTemplateEnvironment* /*environment*/, ListArgument<Value> /*arguments*/) override {
    throw PluginException();
  }
};

void raiseSyntaxError() {
  KorTemplate::compile("<? if ?>");
}

void raiseException() {
  NSException::raise(NSRangeException, "%d is too much", 7);
}

void raiseLimit() {
  KorTemplateLimits limits;
  limits.functionDepth = 5;
  const auto environment = KorTemplateEnvironment::environment();
  environment->setLimits(limits);
  KorTemplate::compile("<? function f() ?><? f() ?><? endfunction ?><? f() ?>")
      ->executeWithEnvironment(environment.get());
}

void raiseReturn() {
  const auto statement = makeRef<KorTemplateReturnStatement>(makeRef<KorTemplateLiteralExpression>(17));
  statement->executeWithEnvironment(KorTemplateEnvironment::environment().get());
}

void addFunction(KorTemplateEnvironment& environment) {
  environment.setFunctionForName(makeRef<Fail>(), "fail");
}

Value parcel(double weight) {
  return hostShared(std::make_shared<Parcel>(Parcel{weight}));
}

double weightOf(const Value& parcel) {
  const Parcel* const object = hostObject<Parcel>(parcel);
  return object == nullptr ? -1 : object->weight;
}

template <class Exception>
bool catches(void (*body)()) {
  try {
    body();
  } catch (const Exception&) {
    return true;
  }
  return false;
}

bool catchesExceptions() {
  return catches<KorTemplateSyntaxErrorException>(raiseSyntaxError) && catches<NSException>(raiseSyntaxError) &&
         catches<NSException>(raiseException) && catches<KorTemplateLimitException>(raiseLimit) &&
         catches<KorTemplateReturnIndication>(raiseReturn);
}

}  // namespace

}  // namespace tavlo::test

extern "C" [[gnu::visibility("default")]] const tavlo::test::Plugin tavloPlugin;
const tavlo::test::Plugin tavloPlugin = {tavlo::test::raiseSyntaxError, tavlo::test::raiseException,
                                         tavlo::test::raiseLimit,       tavlo::test::raiseReturn,
                                         tavlo::test::addFunction,      tavlo::test::parcel,
                                         tavlo::test::weightOf,         tavlo::test::catchesExceptions};
