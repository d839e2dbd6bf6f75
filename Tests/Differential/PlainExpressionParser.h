#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Lexwright/KorToken.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo::test {

// Why an expression cannot be parsed.
struct PlainError {
  std::string name;
  std::string reason;
};

// Parses the expression of tokens over an ASCII text whose places count from its start, the slow way: a first phase
// turns every token into an operand or an operator, and a second folds one operator after another. Every list is
// copied, searched and erased from as the two phases are described. Throws PlainError.
Ref<KorTemplateExpression> parsePlainly(const std::string& text, const std::vector<KorToken>& tokens);

}  // namespace tavlo::test
