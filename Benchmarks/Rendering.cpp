#include "Benchmarks/Rendering.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Tool/JSONReader.h"

namespace tavlo::benchmarks {

Rendering::Rendering(std::string_view text, std::string_view data)
    : template_(KorTemplate::compile(text)),
      environment_(KorTemplateEnvironment::environment()),
      errors_(KorTemplateStringStream::stringStream()) {
  environment_->setErrorStream(errors_);
  const Ref<NSDictionary> globals = readJSONObject(std::string(data));
  for (const NSDictionary::Entry& entry : globals->entries()) {
    environment_->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
}

const KorTemplateStringStream& Rendering::run(std::size_t capacity) {
  output_ = KorTemplateStringStream::stringStream();
  output_->buffer()->mutableText().reserve(capacity);
  environment_->setOutputStream(output_);
  template_->executeWithEnvironment(environment_.get());
  return *output_;
}

std::string Rendering::output() {
  return std::string(run(0).buffer()->string()).append(errors_->buffer()->string());
}

std::string readSourceFile(const std::string& path) {
  const std::string whole = TAVLO_SOURCE_DIR "/" + path;
  std::ifstream in(whole, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + whole);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace tavlo::benchmarks
