#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"
#include "Source/Operand.h"

namespace tavlo {

// Writes the text of a value to the stream that is current once the value is known: one write a statement, none for the
// null object.
class KorTemplateOutputStatement final : public KorTemplateStatement {
 public:
  // Over a literal of the null object.
  KorTemplateOutputStatement();
  // The expression may not be absent.
  explicit KorTemplateOutputStatement(Ref<KorTemplateExpression> expression);
  static Ref<KorTemplateOutputStatement> statementWithExpression(Ref<KorTemplateExpression> expression) {
    return makeRef<KorTemplateOutputStatement>(std::move(expression));
  }

  // A statement over a literal that is a part of a template's text: the text is referred to, not copied, and the
  // literal is made when it is first asked for. The text may not be absent, and counts atomically from here on. A part
  // that goes beyond it ends with it; one that begins beyond it, or that cuts a character, raises `NSRangeException`.
  static Ref<KorTemplateOutputStatement> statementWithText(const Ref<NSString>& text, SourceRange part);

  const Ref<KorTemplateExpression>& expression() const { return refersToText() ? madeLiteral() : expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value);

  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  // Appends the value to the text where it lives somewhere and that runs nobody else's code; false, and nothing done,
  // otherwise.
  [[gnu::always_inline]] bool executeQuietly(const KorTemplateEnvironment& environment, TextBuffer& text) const {
    if (!refersToText()) return writeQuietly(environment, text);
    text.append(referredText());
    return true;
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateOutputStatement"; }
  void describe(Description& out) const override;

 private:
  KorTemplateOutputStatement(const Ref<NSString>& text, SourceRange part);

  // Writes what a key path leads to that must be asked for.
  static void executePath(const KorTemplateVariableExpression& path, KorTemplateEnvironment& environment);
  bool writeQuietly(const KorTemplateEnvironment& environment, TextBuffer& text) const {
    if (expression_ == nullptr) return false;
    if (expression_->kind() == kBinaryKind) {
      return static_cast<const KorTemplateBinaryExpression&>(*expression_).appendQuietly(environment, text);
    }
    const RawValue value = peekExpression(*expression_, environment);
    return KorTemplateEnvironment::appendOutput(value, text) || value.kind() == ValueKind::Null;
  }

  // Whether the text stands for the literal still, which nobody has asked for.
  bool refersToText() const noexcept { return refersToText_.load(std::memory_order_acquire); }
  std::string_view referredText() const noexcept { return {text_, textLength_}; }
  const Ref<KorTemplateExpression>& madeLiteral() const;

  mutable Ref<KorTemplateExpression> expression_;
  Ref<NSString> template_;      // that text_ is a part of; absent for every other statement
  const char* text_ = nullptr;  // the literal's, good as long as template_ is
  std::uint32_t textLength_ = 0;
  mutable std::atomic<bool> refersToText_{false};
};

}  // namespace tavlo
