#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Structure/Markdown.h"
#include "Tests/Structure/SourceTree.h"
#include "Tool/JSONReader.h"

namespace tavlo::test {

namespace {

// What a template writes to its output, then to its error stream, then the failure that it ends with, as a line.
std::string outcomeOf(const std::string& text, const std::string& data) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStringStream> output = KorTemplateStringStream::stringStream();
  const Ref<KorTemplateStringStream> errors = KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  environment->setErrorStream(errors);
  const Ref<NSDictionary> globals = readJSONObject(data);
  for (const NSDictionary::Entry& entry : globals->entries()) {
    environment->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
  std::string failure;
  try {
    KorTemplate::compile(text)->executeWithEnvironment(environment.get());
  } catch (const NSException& exception) {
    failure = exception.name() + ": " + exception.description() + "\n";
  }
  return std::string(output->buffer()->string()).append(errors->buffer()->string()) + failure;
}

// An example of a document is a block of the kind "tavlo" and the block after it, of the kind "text": what comes out.
// Its data is the latest block of the kind "json" before it.
struct Example {
  FencedBlock text;
  FencedBlock outcome;
  std::string data;
};

std::vector<Example> examplesOf(const std::string& document) {
  std::vector<Example> examples;
  std::string data = "{}";
  const std::vector<FencedBlock> blocks = fencedBlocks(document);
  for (std::size_t index = 0; index < blocks.size(); ++index) {
    if (blocks[index].kind == "json") data = blocks[index].text;
    if (blocks[index].kind != "tavlo") continue;
    const FencedBlock none{"", "(no block of text follows)", blocks[index].line};
    const bool hasOutcome = index + 1 < blocks.size() && blocks[index + 1].kind == "text";
    examples.push_back({blocks[index], hasOutcome ? blocks[index + 1] : none, data});
  }
  return examples;
}

class Document : public testing::TestWithParam<const char*> {
 protected:
  const std::string text = readFile(std::string(TAVLO_SOURCE_DIR "/") + GetParam());
};

TEST_P(Document, ShowsWhatItsTemplatesWrite) {
  const std::vector<Example> examples = examplesOf(text);
  ASSERT_FALSE(examples.empty());
  for (const Example& example : examples) {
    std::string outcome = outcomeOf(example.text.text, example.data);
    if (!outcome.ends_with('\n')) outcome += '\n';  // a block's last line has one
    EXPECT_EQ(outcome, example.outcome.text) << GetParam() << ":" << example.text.line << "\n" << example.text.text;
  }
}

INSTANTIATE_TEST_SUITE_P(Documents, Document, testing::Values("README.md", "Documentation/manual.md"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param).starts_with("README") ? "Readme" : "Manual";
                         });

TEST(Manual, ShowsTheValueOfEveryExpression) {
  const std::vector<CodeRow> rows =
      codeRows(readFile(TAVLO_SOURCE_DIR "/Documentation/manual.md"), "| Expression | Text of its value |");
  ASSERT_GT(rows.size(), 50U);
  for (const CodeRow& row : rows) {
    EXPECT_EQ(outcomeOf("<?= " + row.left + " ?>", "{}"), row.right)
        << "Documentation/manual.md:" << row.line << ": " << row.left;
  }
}

TEST(Manual, ShowsTheErrorOfEveryWrongBlock) {
  const std::vector<CodeRow> rows =
      codeRows(readFile(TAVLO_SOURCE_DIR "/Documentation/manual.md"), "| Block | Error |");
  ASSERT_GT(rows.size(), 10U);
  for (const CodeRow& row : rows) {
    EXPECT_EQ(outcomeOf(row.left, "{}"), row.right + "\n") << "Documentation/manual.md:" << row.line;
  }
}

}  // namespace

}  // namespace tavlo::test
