#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Foundation/NSArray.h"
#include "Source/KorTemplateConsoleStream.h"
#include "Source/KorTemplateNullStream.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;

// Notes every write and every delivery in one list.
class NotingStream final : public KorTemplateStream {
 public:
  explicit NotingStream(std::vector<std::string>& notes) : notes_(notes) {}
  void write(const Text& text) override { notes_.emplace_back(text.view()); }
  void flush() override { notes_.emplace_back("flush"); }

 private:
  std::vector<std::string>& notes_;
};

TEST(KorTemplateStream, DeliversBeforeADiagnosticAndWhenTheOutermostExecutionEnds) {
  const Stage stage;
  std::vector<std::string> notes;
  stage.environment->setOutputStream(makeRef<NotingStream>(notes));
  stage.errors->onWrite = [&](const Text& text) { notes.emplace_back(text.view()); };
  stage.define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  const Ref<KorTemplate> inner = KorTemplate::compile("b");
  stage.define("inner", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    inner->executeWithEnvironment(environment);
    return NSNull::null();
  });
  stage.run("a<? inner() ?><? boom() ?>c");
  EXPECT_THAT(notes, ElementsAre("a", "b", "flush", "bang", "c", "flush"));
}

TEST(KorTemplateStream, DeliversAlsoWhenAnExceptionEndsTheExecution) {
  const Stage stage;
  std::vector<std::string> notes;
  stage.environment->setOutputStream(makeRef<NotingStream>(notes));
  EXPECT_EQ(raisedBy([&] { stage.run("a<? 1 / 0 ?>b"); }), "NSGenericException: Divide by zero");
  EXPECT_THAT(notes, ElementsAre("a", "flush"));
}

TEST(KorTemplateStringStream, AppendsToABufferOfItsOwn) {
  for (const Ref<KorTemplateStringStream>& stream :
       {KorTemplateStringStream::stringStream(), makeRef<KorTemplateStringStream>()}) {
    ASSERT_NE(stream->buffer(), nullptr);
    EXPECT_EQ(stream->buffer()->string(), "");
    stream->write("a");
    stream->write("");
    stream->write("b\n");
    EXPECT_EQ(stream->buffer()->string(), "ab\n");
  }
}

TEST(KorTemplateStringStream, SharesTheBufferItIsGiven) {
  const Ref<NSMutableString> buffer = NSMutableString::mutableString();
  buffer->appendString("before ");
  for (const Ref<KorTemplateStringStream>& stream :
       {KorTemplateStringStream::stringStreamWithBuffer(buffer), makeRef<KorTemplateStringStream>(buffer)}) {
    EXPECT_EQ(stream->buffer(), buffer);
    stream->write("x");
  }
  EXPECT_EQ(buffer->string(), "before xx");
  const Ref<NSMutableString> next = NSMutableString::mutableString();
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStreamWithBuffer(buffer);
  stream->setBuffer(next);
  stream->write("y");
  EXPECT_EQ(buffer->string(), "before xx");
  EXPECT_EQ(next->string(), "y");
}

TEST(KorTemplateStringStream, RefusesAnAbsentTextAndStaysAsItWas) {
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stream->write("a");
  EXPECT_THAT(raisedBy([&] { stream->write(nullptr); }), testing::StartsWith("NSInvalidArgumentException: "));
  EXPECT_EQ(stream->buffer()->string(), "a");
}

TEST(KorTemplateStringStream, WithoutABufferDropsEverything) {
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStreamWithBuffer(nullptr);
  EXPECT_EQ(raisedBy([&] {
              stream->write("a");
              stream->write(nullptr);
            }),
            "nothing");
  const Stage stage;
  stage.environment->setOutputStream(stream);
  EXPECT_EQ(raisedBy([&] {
              templateOf({output("a"), output(nothing())})->executeWithEnvironment(stage.get());
            }),
            "nothing");
}

TEST(KorTemplateStringStream, EndsAnExecutionThatWritesAnAbsentText) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  const Ref<KorTemplate> failing = templateOf({output("a"), output(nothing()), output("b")});
  EXPECT_THAT(raisedBy([&] { failing->executeWithEnvironment(stage.get()); }),
              testing::StartsWith("NSInvalidArgumentException: "));
  EXPECT_EQ(stream->buffer()->string(), "a");
}

TEST(KorTemplateStringStream, GrowsWhileItsBufferIsWritten) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  stage.set("buffer", stream->buffer());
  stage.run("ab<?= $buffer ?><?= $buffer ?>");
  EXPECT_EQ(stream->buffer()->string(), "abababab");
}

TEST(KorTemplateNullStream, TakesEverything) {
  const Ref<KorTemplateNullStream> stream = KorTemplateNullStream::nullStream();
  EXPECT_NE(stream, KorTemplateNullStream::nullStream());
  EXPECT_EQ(raisedBy([&] {
              stream->write("a");
              stream->write(nullptr);
            }),
            "nothing");
}

TEST(KorTemplateConsoleStream, WritesLinesToStandardError) {
  const Ref<KorTemplateConsoleStream> stream = KorTemplateConsoleStream::consoleStream();
  EXPECT_NE(stream, KorTemplateConsoleStream::consoleStream());
  testing::internal::CaptureStderr();
  stream->write("one");
  stream->write(nullptr);
  stream->write("");
  stream->write("100%@ %d");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "one\n(null)\n\n100%@ %d\n");
}

TEST(KorTemplateOutputStatement, WritesTheDescriptionOfAnyValue) {
  struct Row {
    const char* what;
    Value value;
    const char* text;
  };
  const Ref<NSArray> list = NSArray::arrayWithObjects({1, "a b"});
  const Row rows[] = {
      {"a string", "a%@b", "a%@b"}, {"the empty string", "", ""},
      {"an integer", -42, "-42"},   {"a double", 2.5, "2.5"},
      {"a whole double", 5.0, "5"}, {"a boolean", true, "1"},
      {"false", false, "0"},        {"a list", list, "(\n    1,\n    \"a b\"\n)"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    output(row.value)->executeWithEnvironment(stage.get());
    EXPECT_THAT(stage.output->writes, ElementsAre(row.text)) << row.what;
  }
}

TEST(KorTemplateOutputStatement, WritesNothingForNullAndByDefault) {
  const Stage stage;
  output(NSNull::null())->executeWithEnvironment(stage.get());
  const Ref<KorTemplateOutputStatement> fresh = makeRef<KorTemplateOutputStatement>();
  EXPECT_TRUE(as<KorTemplateLiteralExpression>(fresh->expression()).literal().isNull());
  fresh->executeWithEnvironment(stage.get());
  EXPECT_TRUE(stage.output->writes.empty());
}

TEST(KorTemplateOutputStatement, WritesAnAbsentValueAsAnAbsentText) {
  const Stage stage;
  output(nothing())->executeWithEnvironment(stage.get());
  const Ref<KorTemplateOutputStatement> empty = makeRef<KorTemplateOutputStatement>();
  empty->setExpression(nullptr);
  empty->executeWithEnvironment(stage.get());
  const Ref<KorTemplateExpression> emptied = literal(1);
  as<KorTemplateLiteralExpression>(emptied).setLiteral({});
  output(emptied)->executeWithEnvironment(stage.get());
  EXPECT_THAT(stage.output->writes, ElementsAre(std::nullopt, std::nullopt, std::nullopt));
}

TEST(KorTemplateOutputStatement, MakesOneWriteAStatement) {
  const Stage stage;
  templateOf({output("a"), output(""), output(NSNull::null()), output("bc"), output(1)})
      ->executeWithEnvironment(stage.get());
  EXPECT_THAT(stage.output->writes, ElementsAre("a", "", "bc", "1"));
}

TEST(KorTemplateOutputStatement, GivesTheTextToTheStreamSetByItsOwnExpression) {
  const Stage stage;
  const Ref<RecordingStream> next = makeRef<RecordingStream>();
  stage.define("redirect", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(next);
    return "moved";
  });
  stage.run("a<?= redirect() ?>b");
  EXPECT_THAT(stage.output->writes, ElementsAre("a"));
  EXPECT_THAT(next->writes, ElementsAre("moved", "b"));
}

TEST(KorTemplateOutputStatement, SurvivesAStreamThatReplacesItself) {
  const Stage stage;
  const Ref<RecordingStream> next = makeRef<RecordingStream>();
  const Value text = "a";
  {
    const Ref<RecordingStream> first = makeRef<RecordingStream>();
    RecordingStream* const inside = first.get();
    first->onWrite = [&, inside](const Text&) {
      stage.environment->setOutputStream(next);
      EXPECT_TRUE(inside->writes.empty());
    };
    stage.environment->setOutputStream(first);
  }
  templateOf({output(text), output("b")})->executeWithEnvironment(stage.get());
  EXPECT_THAT(next->writes, ElementsAre("b"));
}

TEST(KorTemplateOutputStatement, CopiesItsExpression) {
  const Value text = "a";
  const Ref<KorTemplateOutputStatement> original = makeRef<KorTemplateOutputStatement>(literal(text));
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateOutputStatement>(copied);
  EXPECT_NE(copy.expression(), original->expression());
  EXPECT_TRUE(as<KorTemplateLiteralExpression>(copy.expression()).literal().isIdenticalTo(text));
}

TEST(KorTemplateLiteralExpression, YieldsTheVeryValueEveryTimeWithAndWithoutEnvironment) {
  const Value value = NSArray::arrayWithObjects({1});
  const Stage stage;
  for (const Ref<KorTemplateLiteralExpression>& expression :
       {makeRef<KorTemplateLiteralExpression>(value), KorTemplateLiteralExpression::expressionWithLiteral(value)}) {
    EXPECT_TRUE(expression->literal().isIdenticalTo(value));
    EXPECT_TRUE(expression->evaluateWithEnvironment(nullptr).isIdenticalTo(value));
    EXPECT_TRUE(expression->evaluateWithEnvironment(stage.get()).isIdenticalTo(value));
    const Ref<KorTemplateExpression> copy = expression->copyWithZone();
    EXPECT_NE(copy, Ref<KorTemplateExpression>(expression));
    EXPECT_TRUE(as<KorTemplateLiteralExpression>(copy).literal().isIdenticalTo(value));
    expression->setLiteral(7);
    EXPECT_EQ(expression->evaluateWithEnvironment(nullptr).description(), "7");
    EXPECT_TRUE(copy->evaluateWithEnvironment(nullptr).isIdenticalTo(value));
  }
}

}  // namespace

}  // namespace tavlo::test
