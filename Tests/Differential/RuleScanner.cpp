#include "Tests/Differential/RuleScanner.h"

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test {

namespace {

PlainToken plain(const KorToken& token) {
  return {token.tokenClass, token.line, token.position, token.length, token.byteOffset, token.byteLength};
}

}  // namespace

std::vector<PlainBlock> scanWithRules(const std::string& text) {
  const Ref<KorRuleBasedScanner> scanner = parsing::scannerOver(text);
  std::vector<PlainBlock> blocks;
  while (const KorToken* token = scanner->nextToken()) {
    EXPECT_TRUE(token->isCompound);
    PlainBlock& block = blocks.emplace_back();
    block.whole = plain(*token);
    for (const KorToken& subtoken : static_cast<const KorCompoundToken*>(token)->subtokens) {
      block.subtokens.push_back(plain(subtoken));
    }
  }
  return blocks;
}

}  // namespace tavlo::test
