#include "Source/KorTemplateRendering.h"

#include <exception>

#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"

namespace tavlo {

namespace {

// An environment with the data as its globals and the stream for its output.
Ref<KorTemplateEnvironment> environmentFor(const KorTemplateData& data, const Ref<KorTemplateStringStream>& stream) {
  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setOutputStream(stream);
  for (const KorTemplateData::Entry& entry : data.entries()) {
    environment->setValueForGlobalVariableWithName(entry.value, entry.name);
  }
  return environment;
}

}  // namespace

std::string render(const Text& templateString, const KorTemplateData& data) {
  return render(KorTemplate::compile(templateString), data);
}

std::string render(const Ref<KorTemplate>& compiled, const KorTemplateData& data) {
  requireParameter(compiled != nullptr, "compiled != nil");
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  compiled->executeWithEnvironment(environmentFor(data, stream).get());
  return std::string(stream->buffer()->string());
}

KorTemplateResult<std::string> tryRender(const Text& templateString, const KorTemplateData& data) {
  const KorTemplateResult<Ref<KorTemplate>> compiled = KorTemplate::tryCompile(templateString);
  if (!compiled) return compiled.failure();
  return tryRender(*compiled, data);
}

KorTemplateResult<std::string> tryRender(const Ref<KorTemplate>& compiled, const KorTemplateData& data) {
  try {
    requireParameter(compiled != nullptr, "compiled != nil");
    const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
    const Ref<KorTemplateEnvironment> environment = environmentFor(data, stream);
    const KorTemplateResult<void> result = compiled->tryExecuteWithEnvironment(environment.get());
    if (!result) return result.failure();
    return std::string(stream->buffer()->string());
  } catch (const std::exception&) {
    KorTemplateFailure failure = KorTemplateFailure::ofCurrentException({}).value_or(KorTemplateFailure());
    failure.setException(std::current_exception());
    return failure;
  }
}

}  // namespace tavlo
