#include <utility>

#include "Foundation/NSException.h"
#include "Foundation/ObjectArena.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateParser.h"

namespace tavlo {

Ref<KorTemplate> KorTemplate::compile(const Text& templateString, const KorTemplateLimits& limits,
                                      SourceRange* failedAt) {
  requireParameter(!templateString.isAbsent(), "templateString != nil");
  const Ref<KorTemplateParser> parser = KorTemplateParser::parserForString(templateString, limits);
  ObjectArena arena;
  const ObjectArena::Scope scope(arena);
  try {
    Ref<KorTemplate> result = makeRef<KorTemplate>();
    while (Ref<KorTemplateStatement> statement = parser->nextStatement()) {
      result->statements().append(std::move(statement));
    }
    return result;
  } catch (...) {
    if (failedAt != nullptr) *failedAt = parser->place();
    throw;
  }
}

}  // namespace tavlo
