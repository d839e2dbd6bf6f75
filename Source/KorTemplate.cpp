#include "Source/KorTemplate.h"

#include "Foundation/Lasting.h"
#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/LevelGuard.h"

namespace tavlo {

void KorTemplate::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

KorTemplateResult<void> KorTemplate::tryExecuteWithEnvironment(KorTemplateEnvironment* environment) {
  const Ref<KorTemplateEnvironment> held = Ref<KorTemplateEnvironment>::retaining(environment);
  try {
    executeWithEnvironment(environment);
    return {};
  } catch (const std::exception&) {
    if (environment != nullptr) return environment->failureInHand();
    return KorTemplateFailure::ofCurrentException({}).value_or(KorTemplateFailure());
  }
}

const std::string& KorTemplate::name() const noexcept {
  static const Lasting<std::string> none;
  return source_ == nullptr ? none.object : source_->name();
}

Completion KorTemplate::execute(KorTemplateEnvironment& environment) {
  environment.checkStack();
  KorTemplateActivation level(source_.get());
  LevelGuard guard(environment, level);
  try {
    const Completion completion = executeStatements(statements_, environment);
    if (completion.isReturn()) (void)Value::adopt(completion.value());  // dropped with the rest of the template
  } catch (const KorTemplateReturnIndication&) {
    if (environment.takePopFailure()) failAssertion("Stack frame is empty");
  }
  guard.leave();
  if (level.caller != nullptr)
    environment.leaveTo(level.caller);  // this template may end before another statement begins
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplate::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplate> copy = makeRef<KorTemplate>();
  copy->setSourceRange(sourceRange());
  copy->setSource(source_);
  statements_.forEach([&](const Ref<KorTemplateStatement>& statement) { copy->addStatement(copyOf(statement)); });
  return copy;
}

}  // namespace tavlo
