#include "Source/KorTemplateOutputStatement.h"

#include <algorithm>
#include <mutex>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"

namespace tavlo {

KorTemplateOutputStatement::KorTemplateOutputStatement()
    : KorTemplateOutputStatement(KorTemplateLiteralExpression::expressionWithLiteral(NSNull::null())) {}

KorTemplateOutputStatement::KorTemplateOutputStatement(Ref<KorTemplateExpression> expression)
    : KorTemplateStatement(kOutputKind), expression_(std::move(expression)) {
  requireParameter(expression_ != nullptr, "theExpression != nil");
}

KorTemplateOutputStatement::KorTemplateOutputStatement(const Ref<NSString>& text, SourceRange part)
    : KorTemplateStatement(kOutputKind), template_(text), refersToText_(true) {
  const std::string_view whole = text->view();
  const auto cutsCharacter = [whole](std::size_t at) { return at < whole.size() && isContinuation(whole[at]); };
  const std::size_t end = std::min(whole.size(), std::size_t{part.offset} + part.length);
  if (part.offset > whole.size() || cutsCharacter(part.offset) || cutsCharacter(end)) {
    NSException::raise(NSRangeException, "Byte %d with %d bytes is no part of a text of %d bytes in whole characters",
                       part.offset, part.length, whole.size());
  }
  const std::string_view literal = whole.substr(part.offset, part.length);
  text_ = literal.data();
  textLength_ = static_cast<std::uint32_t>(literal.size());
  setSourceRange(part);
}

Ref<KorTemplateOutputStatement> KorTemplateOutputStatement::statementWithText(const Ref<NSString>& text,
                                                                              SourceRange part) {
  requireParameter(text != nullptr, "text != nil");
  text->markShared();  // threads that run the statement count it
  return Ref<KorTemplateOutputStatement>::adopt(new KorTemplateOutputStatement(text, part));
}

void KorTemplateOutputStatement::setExpression(const Ref<KorTemplateExpression>& value) {
  expression_ = value;
  refersToText_.store(false, std::memory_order_release);
}

// Two threads may ask at once.
const Ref<KorTemplateExpression>& KorTemplateOutputStatement::madeLiteral() const {
  static auto& mutex = *new std::mutex;  // nodes may outlive every static object
  const std::lock_guard lock(mutex);
  if (refersToText_.load(std::memory_order_relaxed)) {
    expression_ = KorTemplateLiteralExpression::expressionWithLiteral(
        template_->substring(static_cast<std::size_t>(text_ - template_->characters()), textLength_));
    refersToText_.store(false, std::memory_order_release);
  }
  return expression_;
}

void KorTemplateOutputStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateOutputStatement::execute(KorTemplateEnvironment& environment) {
  if (refersToText()) {
    environment.writeText(referredText());
    return Completion::wentOn();
  }
  // Without an expression there is no value: its absence is written.
  const RawValue value = expression_ == nullptr ? RawValue::absent() : peekExpression(*expression_, environment);
  if (!value.isNothing()) {
    if (value.kind() != ValueKind::Null) environment.writeOutput(value);
    return Completion::wentOn();
  }
  if (expression_->kind() == kVariableKind && !environment.isObserved()) {
    executePath(static_cast<const KorTemplateVariableExpression&>(*expression_), environment);
    return Completion::wentOn();
  }
  const Value evaluated = Value::adopt(expression_->evaluate(environment));
  if (!evaluated.isNull()) environment.writeOutput(evaluated.peek());
  return Completion::wentOn();
}

void KorTemplateOutputStatement::executePath(const KorTemplateVariableExpression& path,
                                             KorTemplateEnvironment& environment) {
  const Value* const root = path.rootOfPath(environment);
  if (root == nullptr) return;
  Value holder = *root;  // a host's property may let go of the variable that holds it
  LentValue lent;
  path.lend(holder, lent);
  if (lent.isText()) return environment.writeLentText(lent.text());
  if (!lent.value().isNull()) environment.writeOutput(lent.value().peek());
}

Ref<KorTemplateStatement> KorTemplateOutputStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateOutputStatement> copy = makeRef<KorTemplateOutputStatement>();
  copy->setExpression(copyOf(expression()));
  copy->setSourceRange(sourceRange());
  return copy;
}

void KorTemplateOutputStatement::describe(Description& out) const {
  out.format("{ %@, expression: %@ }", Description::base(*this), expression());
}

}  // namespace tavlo
