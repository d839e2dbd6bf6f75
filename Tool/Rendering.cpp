#include "Tool/Rendering.h"

#include <exception>
#include <new>
#include <optional>
#include <string>

#include "Foundation/Utf8.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Tool/DiagnosticStream.h"
#include "Tool/FileStream.h"
#include "Tool/GlobalDefinitions.h"
#include "Tool/InputFile.h"
#include "Tool/OutputFile.h"

namespace tavlo {

namespace {

// The exception in flight, which ended the compilation or the run of a template.
Failure failureOfTemplate() {
  Failure failure;
  try {
    throw;
  } catch (const NSException& exception) {
    failure.name = exception.name();
    failure.reason = exception.description();
    if (const auto* error = dynamic_cast<const KorTemplateSyntaxErrorException*>(&exception))
      failure.line = error->line();
  } catch (const KorTemplateLimitException& limit) {
    failure.name = "KorTemplateLimitException";
    failure.reason = limit.what();
  } catch (const std::bad_alloc&) {
    failure.name = "std::bad_alloc";
    failure.reason = "There is not enough memory";
  } catch (const std::exception& exception) {
    failure.name = "std::exception";
    failure.reason = exception.what();
  }
  return failure;
}

// The failure in the template's file, at the range of its text where that is known.
Failure placed(Failure failure, const std::string& file, const std::string& text, SourceRange range) {
  failure.file = file;
  return range.isKnown() ? failure.at(text, TextPlace::inText(text, range.offset, range.length)) : failure;
}

Ref<KorTemplate> compile(const std::string& text, const RenderOptions& options) {
  SourceRange failedAt;
  if (const std::optional<std::size_t> invalid = firstInvalidByte(text)) {
    failedAt = {static_cast<std::uint32_t>(*invalid), 1};
  }
  try {
    return KorTemplate::compile(text, options.limits, &failedAt);
  } catch (const std::exception&) {
    throw placed(failureOfTemplate(), options.templateFile, text, failedAt);
  }
}

}  // namespace

void render(const RenderOptions& options, const Diagnostics& diagnostics) {
  const std::string text = readFile(options.templateFile);
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setLimits(options.limits);
  environment->setErrorStream(DiagnosticStream::diagnosticStream(diagnostics));
  defineGlobals(*environment, options);
  const Ref<KorTemplate> compiled = compile(text, options);

  OutputFile output(options.outputFile);
  environment->setOutputStream(FileStream::fileStream(output.descriptor(), output.name()));
  try {
    compiled->executeWithEnvironment(environment.get());
  } catch (const std::exception&) {
    throw placed(failureOfTemplate(), options.templateFile, text, environment->failedStatement());
  }
  output.keep();
}

}  // namespace tavlo
