#include "Source/KorTemplateBlockStatement.h"

#include "Foundation/NSException.h"

namespace tavlo {

void KorTemplateBlockStatement::executeWithEnvironment(KorTemplateEnvironment* /*environment*/) {
  failAssertion("KorTemplateBlockStatement should never be executed");
}

Ref<KorTemplateStatement> KorTemplateBlockStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateBlockStatement> copy = statementWithKeyword(keyword());
  copy->setExpression(copyOf(expression_));
  copy->setSourceRange(sourceRange());
  return copy;
}

}  // namespace tavlo
