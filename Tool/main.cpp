#include <fstream>
#include <iostream>
#include <sstream>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tool/JSONReader.h"

int main(int argc, char** argv) {
  using namespace tavlo;
  const auto read = [](const char* path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  };
  const auto environment = KorTemplateEnvironment::environment();
  const auto stream = KorTemplateStringStream::stringStream();
  environment->setOutputStream(stream);
  for (int index = 2; index < argc; ++index) {
    const Ref<NSDictionary> data = readJSONObject(read(argv[index]));
    for (const auto& entry : data->entries()) environment->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
  KorTemplate::compile(read(argv[1]))->executeWithEnvironment(environment.get());
  std::cout << stream->buffer()->string();
}
