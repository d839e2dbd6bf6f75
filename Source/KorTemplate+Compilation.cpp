#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "Foundation/NSException.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Utf8.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateParser.h"

namespace tavlo {

namespace {

// The parser holds the text, and knows in the end where it has been.
Ref<KorTemplate> compileWith(KorTemplateParser& parser) {
  constexpr std::size_t kBytesOfNodes = 9;  // about as many as two bytes of template take
  ObjectArena arena(parser.inputString()->byteLength() / 2 * kBytesOfNodes);
  const ObjectArena::Scope scope(arena);
  Ref<KorTemplate> result = makeRef<KorTemplate>();
  result->setSource(parser.source());
  constexpr std::size_t kBytesOfStatement = 64;  // of template, about
  std::vector<Ref<KorTemplateStatement>> statements;
  statements.reserve(parser.inputString()->byteLength() / kBytesOfStatement + 1);
  while (Ref<KorTemplateStatement> statement = parser.nextStatement()) statements.push_back(std::move(statement));
  result->statements().appendMoved(statements);
  return result;
}

// The place that could not be read; without a parser the text is not UTF-8 there, or there is none.
KorTemplatePlace placeOf(const KorTemplateParser* parser, const Text& text, const std::string& name) {
  if (parser != nullptr) return {parser->source(), parser->place()};
  const std::optional<std::size_t> invalid = firstInvalidByte(text.view());
  const SourceRange range{static_cast<std::uint32_t>(invalid.value_or(0)), invalid.has_value() ? 1U : 0U};
  return {makeRef<KorTemplateSource>(name, text.view()), range};
}

// The failure that the exception in hand is.
KorTemplateFailure failureOf(const KorTemplateParser* parser, const Text& text, const std::string& name) noexcept {
  KorTemplateFailure::SharedTrace trace;
  try {
    trace = std::make_shared<const KorTemplateTrace>(KorTemplateTrace{placeOf(parser, text, name), {}, 0});
  } catch (const std::bad_alloc&) {
    trace = nullptr;  // the exception matters more than its place
  }
  return KorTemplateFailure::ofCurrentException(trace).value_or(KorTemplateFailure());
}

}  // namespace

Ref<KorTemplate> KorTemplate::compile(const Text& templateString, const KorTemplateLimits& limits,
                                      SourceRange* failedAt) {
  requireParameter(!templateString.isAbsent(), "templateString != nil");
  const Ref<KorTemplateParser> parser = KorTemplateParser::parserForString(templateString, limits);
  parser->setSource(makeRef<KorTemplateSource>(std::string(), parser->inputString()));
  try {
    return compileWith(*parser);
  } catch (...) {
    if (failedAt != nullptr) *failedAt = parser->place();
    throw;
  }
}

Ref<KorTemplate> KorTemplate::compile(const Text& templateString, const KorTemplateCompileOptions& options,
                                      KorTemplateFailure* failure) {
  Ref<KorTemplateParser> parser;
  try {
    requireParameter(!templateString.isAbsent(), "templateString != nil");
    parser = KorTemplateParser::parserForString(templateString, options.limits);
    parser->setSource(makeRef<KorTemplateSource>(options.name, parser->inputString()));
    return compileWith(*parser);
  } catch (...) {
    if (failure != nullptr) *failure = failureOf(parser.get(), templateString, options.name);
    throw;
  }
}

KorTemplateResult<Ref<KorTemplate>> KorTemplate::tryCompile(const Text& templateString,
                                                            const KorTemplateCompileOptions& options) {
  KorTemplateFailure failure;
  try {
    return compile(templateString, options, &failure);
  } catch (const std::exception&) {
    failure.setException(std::current_exception());
    return failure;
  }
}

}  // namespace tavlo
