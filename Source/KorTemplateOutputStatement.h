#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
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

  ~KorTemplateOutputStatement() override {
    if (hasText()) {
      (void)dropText();
    } else {
      std::destroy_at(&expression_);
    }
  }

  const Ref<KorTemplateExpression>& expression() const { return hasText() ? madeLiteral() : expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value);

  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  // Appends the value to the text where it lives somewhere and that runs nobody else's code; false, and nothing done,
  // otherwise.
  [[gnu::always_inline]] bool executeQuietly(KorTemplateEnvironment& environment, TextBuffer& text) const {
    const std::uint32_t length = textLength();
    if (length - kPadded <= TextBuffer::kLongestPadded && text.hasPaddedRoom()) [[likely]] {
      text.appendPadded({textStart(), length - kPadded});  // too few bytes to be counted as work
      return true;
    }
    if (length == kNoText) return writeQuietly(environment, text);
    if (length == kMadeText) return false;
    const std::string_view literal(textStart(), length & ~kPadded);
    if (literal.size() >= KorTemplateEnvironment::kLongText) [[unlikely]]
      return false;
    environment.countBytes(literal.size());
    text.append(literal);
    return true;
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateOutputStatement"; }
  void describe(Description& out) const override;

 private:
  // For a part that is one of the text.
  KorTemplateOutputStatement(const Ref<NSString>& text, SourceRange part) noexcept;

  // Writes what a key path leads to that must be asked for.
  static void executePath(const KorTemplateVariableExpression& path, KorTemplateEnvironment& environment);
  bool writeQuietly(KorTemplateEnvironment& environment, TextBuffer& text) const {
    if (expression_ == nullptr) return false;
    if (expression_->kind() == kBinaryKind) {
      return static_cast<const KorTemplateBinaryExpression&>(*expression_).appendQuietly(environment, text);
    }
    const RawValue value = peekNear(*expression_, environment);
    return environment.appendOutput(value, text) || value.kind() == ValueKind::Null;
  }

  std::uint32_t textLength() const noexcept { return textLength_.load(std::memory_order_relaxed); }
  bool hasText() const noexcept { return textLength() != kNoText; }
  const char* textStart() const noexcept { return template_->characters() + textOffset_; }
  const Ref<KorTemplateExpression>& madeLiteral() const;
  Ref<KorTemplateExpression> takeMadeLiteral() noexcept;
  // Hands out the literal that was made, for who lets go of it last: its end may run this statement.
  Ref<KorTemplateExpression> dropText() noexcept {
    Ref<KorTemplateExpression> literal;
    if (madeLiterals_.load(std::memory_order_relaxed) != 0) [[unlikely]]
      literal = takeMadeLiteral();
    std::destroy_at(&template_);
    return literal;
  }

  // How many literals have been made, for the few statements over a text that were asked for theirs.
  static inline std::atomic<std::size_t> madeLiterals_{0};

  static_assert(NSString::kMaximumByteLength < std::uint32_t{1} << 31);
  // With textLength_, of a text that is short, with enough behind it in the template to be copied in whole blocks.
  static constexpr std::uint32_t kPadded = std::uint32_t{1} << 31;
  // As textLength_, of a statement over an expression; and of one whose text stands for its literal no longer, since
  // somebody has asked for that and may have changed it.
  static constexpr std::uint32_t kNoText = ~std::uint32_t{0};
  static constexpr std::uint32_t kMadeText = kNoText - 1;

  union {
    // NOLINTBEGIN(readability-identifier-naming): members of the class like the others
    Ref<KorTemplateExpression> expression_;
    Ref<NSString> template_;  // that the text is a part of
    // NOLINTEND(readability-identifier-naming)
  };
  std::uint32_t textOffset_ = 0;
  mutable std::atomic<std::uint32_t> textLength_{kNoText};
};

}  // namespace tavlo
