#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// A statement of literal text refers to its template's text until somebody asks for its literal.

KorTemplateOutputStatement& outputAt(KorTemplate& compiled, std::int32_t index) {
  return dynamic_cast<KorTemplateOutputStatement&>(*compiled.statements().at(index));
}

const Value& literalOf(const KorTemplateOutputStatement& statement) {
  return dynamic_cast<const KorTemplateLiteralExpression&>(*statement.expression()).literal();
}

TEST(LiteralText, IsALiteralForWhoAsks) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("a\u00e9<?= 1 ?> \n");
  const Ref<KorTemplateExpression> first = outputAt(*compiled, 0).expression();
  EXPECT_EQ(literalOf(outputAt(*compiled, 0)).description(), "a\u00e9");
  EXPECT_EQ(literalOf(outputAt(*compiled, 0)).string()->length(), 2u);
  EXPECT_EQ(literalOf(outputAt(*compiled, 2)).description(), " \n");
  EXPECT_EQ(outputAt(*compiled, 0).expression(), first);
}

// A host may execute any statement of a template by itself.
TEST(LiteralText, IsWrittenByItsStatementAlone) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("abc<?= 1 ?>");
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  const Stage stage;
  stage.environment->setOutputStream(stream);
  const Ref<KorTemplateStatement> text = compiled->statements().at(0);
  text->executeWithEnvironment(stage.get());
  text->executeWithEnvironment(stage.get());
  EXPECT_EQ(stream->buffer()->string(), "abcabc");
  KorTemplateLimits limits;
  limits.output = 2;
  stage.environment->setLimits(limits);
  EXPECT_THROW(text->executeWithEnvironment(stage.get()), KorTemplateLimitException);
  EXPECT_EQ(stream->buffer()->string(), "abcabc");
}

// Its statement copies it in blocks where the template goes on behind it, and byte for byte where it does not.
TEST(LiteralText, OfEveryLengthIsWrittenWhole) {
  for (std::size_t length = 1; length < 300; ++length) {
    std::string literal;
    for (std::size_t index = 0; index < length; ++index) literal += static_cast<char>('a' + (index + length) % 26);
    const Stage stage;
    KorTemplate::compile(literal + "<? 1 ?>" + literal)->executeWithEnvironment(stage.get());
    ASSERT_EQ(stage.text(), literal + literal);
    for (std::size_t room = 0; room < 2 * length + 20; ++room) {
      const auto out = KorTemplateStringStream::stringStream();
      out->buffer()->mutableText().reserve(room);
      stage.get()->setOutputStream(out);
      KorTemplate::compile(literal + "<? 1 ?>" + literal)->executeWithEnvironment(stage.get());
      ASSERT_EQ(out->buffer()->string(), literal + literal) << room;
      if (length > 40) room += length / 2;
    }
  }
}

TEST(LiteralText, OutlivesItsTemplateWithItsStatement) {
  Ref<KorTemplate> compiled = KorTemplate::compile("abc<?= 1 ?>");
  const Ref<KorTemplateStatement> kept = compiled->statements().at(0);
  compiled = nullptr;
  const Stage stage;
  kept->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "abc");
  EXPECT_EQ(literalOf(dynamic_cast<KorTemplateOutputStatement&>(*kept)).description(), "abc");
}

TEST(LiteralText, IsTheSameObjectInACopy) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("abc");
  const Ref<KorTemplateStatement> copy = outputAt(*compiled, 0).copyWithZone();
  const auto& copied = dynamic_cast<KorTemplateOutputStatement&>(*copy);
  EXPECT_NE(copied.expression(), outputAt(*compiled, 0).expression());
  EXPECT_TRUE(literalOf(copied).isIdenticalTo(literalOf(outputAt(*compiled, 0))));
}

TEST(LiteralText, IsWhatAHostMakesOfTheLiteral) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("a<?= 1 ?>b<?= 2 ?>c");
  dynamic_cast<KorTemplateLiteralExpression&>(*outputAt(*compiled, 0).expression()).setLiteral("A");
  outputAt(*compiled, 2).setExpression(KorTemplateLiteralExpression::expressionWithLiteral("B"));
  outputAt(*compiled, 4).setExpression(nullptr);
  EXPECT_EQ(outputAt(*compiled, 4).expression(), nullptr);
  const Stage stage;
  compiled->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "A1B2(null)");
}

TEST(LiteralText, MayBeAskedForByManyThreadsAtOnce) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("abc");
  std::vector<Ref<KorTemplateExpression>> answers(8);
  std::vector<std::thread> threads;
  for (Ref<KorTemplateExpression>& answer : answers) {
    threads.emplace_back([&] {
      answer = outputAt(*compiled, 0).expression();
      const Stage stage;
      compiled->executeWithEnvironment(stage.get());
      EXPECT_EQ(stage.text(), "abc");
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const Ref<KorTemplateExpression>& answer : answers) EXPECT_EQ(answer, answers.front());
}

// Of a value that a host has put into the literal, and that keeps other literal text.
class TemplateHolder final : public NSObject {
 public:
  explicit TemplateHolder(Ref<KorTemplate> held) : held_(std::move(held)) {}

 private:
  Ref<KorTemplate> held_;
};

TEST(LiteralText, MayEndWithinTheEndOfAnotherOne) {
  Ref<KorTemplate> inner = KorTemplate::compile("inner");
  (void)outputAt(*inner, 0).expression();
  const Ref<KorTemplate> outer = KorTemplate::compile("outer");
  dynamic_cast<KorTemplateLiteralExpression&>(*outputAt(*outer, 0).expression())
      .setLiteral(makeRef<TemplateHolder>(std::exchange(inner, nullptr)));
  outputAt(*outer, 0).setExpression(nullptr);
  EXPECT_EQ(outputAt(*outer, 0).expression(), nullptr);
}

// Of a value that a host has put into the literal, and whose end runs what the literal belonged to.
class AskerAtItsEnd final : public NSObject {
 public:
  explicit AskerAtItsEnd(std::function<void()> asked) : asked_(std::move(asked)) {}
  ~AskerAtItsEnd() override { asked_(); }

 private:
  std::function<void()> asked_;
};

TEST(LiteralText, IsGoneBeforeItsLiteralEnds) {
  const Ref<KorTemplate> page = KorTemplate::compile("hello");
  Ref<KorTemplateExpression> seen;
  dynamic_cast<KorTemplateLiteralExpression&>(*outputAt(*page, 0).expression()).setLiteral(makeRef<AskerAtItsEnd>([&] {
    seen = outputAt(*page, 0).expression();
  }));
  const Ref<KorTemplateExpression> next = KorTemplateLiteralExpression::expressionWithLiteral("next");
  outputAt(*page, 0).setExpression(next);
  EXPECT_EQ(seen, next);
}

TEST(LiteralText, IsAPartOfItsText) {
  const Ref<NSString> text = NSString::stringWithUTF8("abcdef");
  EXPECT_EQ(literalOf(*KorTemplateOutputStatement::statementWithText(text, {2, 3})).description(), "cde");
  EXPECT_EQ(literalOf(*KorTemplateOutputStatement::statementWithText(text, {4, 100})).description(), "ef");
  EXPECT_EQ(raised([&] {
              (void)KorTemplateOutputStatement::statementWithText(text, {7, 1});
            }),
            "NSRangeException: Byte 7 with 1 bytes is no part of a text of 6 bytes in whole characters");
  EXPECT_EQ(raisedName([&] { (void)KorTemplateOutputStatement::statementWithText(nullptr, {}); }),
            "NSInternalInconsistencyException");
  EXPECT_TRUE(text->isShared());
  const Ref<NSString> accented = NSString::stringWithUTF8("\u00e9\u00e9");
  for (const SourceRange part : {SourceRange{1, 3}, SourceRange{0, 3}, SourceRange{2, 1}}) {
    EXPECT_EQ(raisedName([&] { (void)KorTemplateOutputStatement::statementWithText(accented, part); }),
              "NSRangeException");
  }
  EXPECT_EQ(literalOf(*KorTemplateOutputStatement::statementWithText(accented, {2, 2})).description(), "\u00e9");
}

}  // namespace

}  // namespace tavlo::test
