#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Fuzzers/CompiledText.h"
#include "Tests/Differential/RecogniserSwitch.h"
#include "Tests/Differential/RuleScanner.h"

// The scanner beside the plain one, with the functions that recognise tokens and with the regular expressions that they
// stand for. Of an input that is no UTF-8 the part before the first wrong byte is taken.

namespace tavlo::fuzz {

namespace {

bool isOpening(std::string_view text) {
  return text == "<?";
}

// Between tokens there is white space, beside text literals there are their quotes, and nothing else is left out.
void checkGap(std::string_view gap) {
  for (std::size_t at = 0; at < gap.size();) {
    const CodePoint character = codePointAt(gap, at);
    const bool isQuote = character.value == '"' || character.value == '\'';
    require(isQuote || isWhiteSpace(character.value), "Between tokens there are only white space and quotes");
    at += character.byteLength;
  }
}

void checkCover(const std::string& text, const std::vector<test::PlainBlock>& blocks) {
  const std::string_view whole = text;
  std::size_t end = 0;
  for (const test::PlainBlock& block : blocks) {
    const std::size_t start = block.whole.byteOffset;
    require(start >= end, "Blocks stand one behind the other");
    require(whole.substr(end, start - end).find("<?") == std::string_view::npos, "No opening tag is passed over");
    require(isOpening(whole.substr(start, 2)), "A block begins with its tag");
    end = start + 2;
    for (const test::PlainToken& token : block.subtokens) {
      require(token.byteOffset >= end, "Tokens stand one behind the other");
      checkGap(whole.substr(end, token.byteOffset - end));
      end = token.byteOffset + token.byteLength;
    }
    const std::size_t blockEnd = start + block.whole.byteLength;
    require(end <= blockEnd && blockEnd <= text.size(), "Tokens lie within their block");
    checkGap(whole.substr(end, blockEnd - end));
    end = blockEnd;
  }
  require(whole.substr(end).find("<?") == std::string_view::npos, "No opening tag is left over");
}

void run(std::string text) {
  text.resize(firstInvalidByte(text).value_or(text.size()));
  const std::vector<test::PlainBlock> expected = test::scanPlainly(text);
  const std::vector<test::PlainBlock> found = test::scanWithRules(text);
  if (found != expected) requireEqual(describe(found), describe(expected), "The scanner finds the tokens of the rules");
  checkCover(text, found);

  const std::string compiled = compiledText(text);
  const test::RecogniserSwitch off(false);
  const std::vector<test::PlainBlock> slow = test::scanWithRules(text);
  if (slow != expected) requireEqual(describe(slow), describe(expected), "The patterns find the tokens of the rules");
  requireEqual(compiledText(text), compiled, "The recognisers make no difference to a template");
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tavlo::fuzz::run(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
