#include <iostream>
#include <memory>
#include <stdexcept>

#include "Benchmarks/peers/Driver.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tool/JSONReader.h"

// Tavlo as a program uses it that is linked to the shared library: compare_tavlo DATA TEMPLATES. It answers commands:
// Driver.h. The data is read as the program `tavlo` reads it.

namespace tavlo::compare {

namespace {

// A compiled template with its data. The environment and the stream serve render after render, as those of a server do
// that answers request after request; what the last one wrote is dropped, and its room is kept.
class Page {
 public:
  Page(const std::string& text, const std::string& data) : template_(KorTemplate::compile(text)) {
    const Ref<NSDictionary> globals = readJSONObject(data);
    for (const NSDictionary::Entry& entry : globals->entries()) {
      environment_->setValueForGlobalVariableWithName(entry.value, entry.key->view());
    }
    environment_->setOutputStream(output_);
  }

  void render() {
    output_->buffer()->clear();
    template_->executeWithEnvironment(environment_.get());
  }

  std::string output() {
    render();
    return std::string(output_->buffer()->string());
  }

 private:
  Ref<KorTemplate> template_;
  Ref<KorTemplateEnvironment> environment_ = KorTemplateEnvironment::environment();
  Ref<KorTemplateStringStream> output_ = KorTemplateStringStream::stringStream();
};

double bytesOfTemplate(const std::string& text) {
  (void)KorTemplate::compile("<?= 1 ?>");  // what a process makes once is made now
  const std::uint64_t before = allocatedBytes();
  const Ref<KorTemplate> compiled = KorTemplate::compile(text);
  return static_cast<double>(allocatedBytes() - before) / static_cast<double>(text.size());
}

Workload compiling(const std::string& text) {
  return {.run = [text] { (void)KorTemplate::compile(text); },
          .output = {},
          .memory = [text] { return bytesOfTemplate(text); }};
}

Workload rendering(const std::string& text, const std::string& data) {
  const auto page = std::make_shared<Page>(text, data);
  return {.run = [page] { page->render(); }, .output = [page] { return page->output(); }, .memory = {}};
}

Workload prepare(const std::string& data, const std::string& templates, const std::string& name) {
  if (name.starts_with("compile-")) return compiling(readFile(data + "/tavlo-" + name + ".txt"));
  const std::string page = name.starts_with("table") ? "table" : name;
  return rendering(readFile(templates + "/" + page + ".tavlo"), readFile(data + "/" + name + ".json"));
}

}  // namespace

}  // namespace tavlo::compare

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: compare_tavlo DATA TEMPLATES\n";
    return 2;
  }
  return tavlo::compare::serve(
      [&](std::string_view name) { return tavlo::compare::prepare(argv[1], argv[2], std::string(name)); });
}
