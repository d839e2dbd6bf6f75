#include "Tool/Rendering.h"

#include <exception>
#include <string>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateSyntaxErrorException.h"
#include "Source/KorTemplateWriteException.h"
#include "Tool/DiagnosticStream.h"
#include "Tool/Failure.h"
#include "Tool/GlobalDefinitions.h"
#include "Tool/InputFile.h"
#include "Tool/OutputFile.h"

namespace tavlo {

namespace {

// The same failure as the program tells of it.
Failure failureOf(const KorTemplateFailure& failure, const std::string& file) {
  Failure told;
  told.name = failure.name();
  told.reason = failure.reason();
  told.file = file;
  if (!failure.place().isKnown()) return told;
  told.place = failure.place().inText();
  told.excerpt = failure.place().excerpt();
  return told;
}

Ref<KorTemplate> compile(const std::string& text, const RenderOptions& options) {
  KorTemplateFailure failure;
  try {
    return KorTemplate::compile(text, {options.templateFile, options.limits}, &failure);
  } catch (const std::exception& exception) {
    Failure told = failureOf(failure, options.templateFile);
    if (const auto* error = dynamic_cast<const KorTemplateSyntaxErrorException*>(&exception)) told.line = error->line();
    throw told;
  }
}

// What the execution has raised.
[[noreturn]] void raiseFailureOf(const KorTemplateEnvironment& environment, const std::string& file) {
  const KorTemplateFailure* const failure = environment.lastFailure();
  throw failureOf(failure == nullptr ? KorTemplateFailure() : *failure, file);
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
  environment->setOutputStream(KorTemplateFileDescriptorStream::streamWithDescriptor(output.descriptor()));
  try {
    compiled->executeWithEnvironment(environment.get());
  } catch (const KorTemplateWriteException& exception) {
    raiseUndelivered(exception.errorNumber(), output.name());
  } catch (const std::exception&) {
    raiseFailureOf(*environment, options.templateFile);
  }
  output.keep();
}

}  // namespace tavlo
