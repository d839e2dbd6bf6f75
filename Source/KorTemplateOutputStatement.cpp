#include "Source/KorTemplateOutputStatement.h"

#include <algorithm>
#include <mutex>
#include <unordered_map>

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

KorTemplateOutputStatement::KorTemplateOutputStatement(const Ref<NSString>& text, SourceRange part) noexcept
    : KorTemplateStatement(kOutputKind), template_(text), textOffset_(part.offset), textLength_(part.length) {
  const bool isShort = part.length != 0 && part.length <= TextBuffer::kLongestPadded;
  if (isShort && TextBuffer::paddedSize(part.length) <= text->byteLength() - part.offset)
    textLength_.store(part.length | kPadded, std::memory_order_relaxed);
  setSourceRange(part);
}

Ref<KorTemplateOutputStatement> KorTemplateOutputStatement::statementWithText(const Ref<NSString>& text,
                                                                              SourceRange part) {
  requireParameter(text != nullptr, "text != nil");
  const std::string_view whole = text->view();
  const auto cutsCharacter = [whole](std::size_t at) { return at < whole.size() && isContinuation(whole[at]); };
  const std::size_t end = std::min(whole.size(), std::size_t{part.offset} + part.length);
  if (part.offset > whole.size() || cutsCharacter(part.offset) || cutsCharacter(end)) {
    NSException::raise(NSRangeException, "Byte %d with %d bytes is no part of a text of %d bytes in whole characters",
                       part.offset, part.length, whole.size());
  }
  text->markShared();  // threads that run the statement count it
  const SourceRange known{part.offset, static_cast<std::uint32_t>(end - part.offset)};
  return Ref<KorTemplateOutputStatement>::adopt(new KorTemplateOutputStatement(text, known));
}

void KorTemplateOutputStatement::setExpression(const Ref<KorTemplateExpression>& value) {
  if (!hasText()) {
    expression_ = value;
    return;
  }
  const Ref<KorTemplateExpression> kept = value;  // it may be the literal that is let go of
  const Ref<KorTemplateExpression> literal = dropText();
  std::construct_at(&expression_, kept);
  textLength_.store(kNoText, std::memory_order_relaxed);
}

namespace {

struct MadeLiterals {
  std::mutex mutex;
  std::unordered_map<const KorTemplateOutputStatement*, Ref<KorTemplateExpression>> ofStatements;
};

MadeLiterals& madeLiterals() {
  static auto& literals = *new MadeLiterals;  // nodes may outlive every static object
  return literals;
}

}  // namespace

// Two threads may ask at once.
const Ref<KorTemplateExpression>& KorTemplateOutputStatement::madeLiteral() const {
  MadeLiterals& made = madeLiterals();
  const std::lock_guard lock(made.mutex);
  Ref<KorTemplateExpression>& literal = made.ofStatements[this];
  madeLiterals_.store(made.ofStatements.size(), std::memory_order_relaxed);
  if (literal == nullptr) {
    literal =
        KorTemplateLiteralExpression::expressionWithLiteral(template_->substring(textOffset_, textLength() & ~kPadded));
    textLength_.store(kMadeText, std::memory_order_relaxed);
  }
  return literal;
}

// Absent where none was made.
Ref<KorTemplateExpression> KorTemplateOutputStatement::takeMadeLiteral() noexcept {
  MadeLiterals& made = madeLiterals();
  const std::lock_guard lock(made.mutex);
  const auto taken = made.ofStatements.extract(this);
  madeLiterals_.store(made.ofStatements.size(), std::memory_order_relaxed);
  return taken.empty() ? nullptr : std::move(taken.mapped());
}

void KorTemplateOutputStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateOutputStatement::execute(KorTemplateEnvironment& environment) {
  const std::uint32_t length = textLength();
  if (length < kMadeText) {
    environment.writeText({textStart(), length & ~kPadded});
    return Completion::wentOn();
  }
  const Ref<KorTemplateExpression>& written = expression();
  // Without an expression there is no value: its absence is written.
  const RawValue value = written == nullptr ? RawValue::absent() : peekExpression(*written, environment);
  if (!value.isNothing()) {
    environment.lookIfDue();  // finding it may have taken a while
    if (value.kind() != ValueKind::Null) environment.writeOutput(value);
    return Completion::wentOn();
  }
  if (written->kind() == kVariableKind && !environment.isObserved()) {
    executePath(static_cast<const KorTemplateVariableExpression&>(*written), environment);
    return Completion::wentOn();
  }
  const Value evaluated = Value::adopt(written->evaluate(environment));
  environment.lookIfDue();
  if (!evaluated.isNull()) environment.writeOutput(evaluated.peek());
  return Completion::wentOn();
}

void KorTemplateOutputStatement::executePath(const KorTemplateVariableExpression& path,
                                             KorTemplateEnvironment& environment) {
  const Value* const root = path.rootOfPath(environment);
  environment.lookIfDue();
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
