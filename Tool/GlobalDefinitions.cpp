#include "Tool/GlobalDefinitions.h"

#include <optional>
#include <string>

#include "Foundation/Utf8.h"
#include "Tool/Failure.h"
#include "Tool/InputFile.h"
#include "Tool/JSONReader.h"

namespace tavlo {

namespace {

void defineMembers(KorTemplateEnvironment& environment, const std::string& file) {
  const std::string text = readFile(file);
  try {
    const Ref<NSDictionary> data = readJSONObject(text);
    for (const NSDictionary::Entry& entry : data->entries()) {
      environment.setValueForGlobalVariableWithName(entry.value, entry.key->view());
    }
  } catch (const JSONError& error) {
    throw Failure::ofInput(file, error.what()).at(text, error.place());
  }
}

Value valueOf(const RenderOptions::Definition& definition) {
  if (!definition.isJSON) return definition.text;
  try {
    return readJSON(definition.text);
  } catch (const JSONError& error) {
    Failure failure = Failure::ofUsage(error.what());
    failure.file = "-D " + definition.name;
    throw failure.at(definition.text, error.place());
  }
}

void requireUTF8(const std::string& text, const std::string& what) {
  if (const std::optional<std::size_t> invalid = firstInvalidByte(text)) {
    throw Failure::ofUsage(what + " is not valid UTF-8 at byte offset " + std::to_string(*invalid));
  }
}

}  // namespace

void defineGlobals(KorTemplateEnvironment& environment, const RenderOptions& options) {
  for (const std::string& file : options.dataFiles) defineMembers(environment, file);
  for (const RenderOptions::Definition& definition : options.definitions) {
    requireUTF8(definition.name, "The name of a -D option");
    if (!definition.isJSON) requireUTF8(definition.text, "The text of -D " + definition.name);
    environment.setValueForGlobalVariableWithName(valueOf(definition), definition.name);
  }
}

}  // namespace tavlo
