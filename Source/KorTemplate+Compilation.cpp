#include "Foundation/NSException.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateParser.h"
#include "Source/NodeArena.h"

namespace tavlo {

Ref<KorTemplate> KorTemplate::compile(const Text& templateString, const KorTemplateLimits& limits,
                                      SourceRange* failedAt) {
  requireParameter(!templateString.isAbsent(), "templateString != nil");
  const Ref<KorTemplateParser> parser = KorTemplateParser::parserForString(templateString, limits);
  NodeArena arena;
  const NodeArena::Scope scope(arena);
  try {
    Ref<KorTemplate> result = makeRef<KorTemplate>();
    while (const Ref<KorTemplateStatement> statement = parser->nextStatement()) result->addStatement(statement);
    return result;
  } catch (...) {
    if (failedAt != nullptr) *failedAt = parser->place();
    throw;
  }
}

}  // namespace tavlo
