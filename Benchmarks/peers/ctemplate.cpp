#include <ctemplate/template.h>
#include <ctemplate/template_dictionary.h>
#include <ctemplate/template_emitter.h>
#include <rapidjson/document.h>

#include <cctype>
#include <iostream>
#include <memory>
#include <stdexcept>

#include "Benchmarks/peers/Driver.h"

// CTemplate: compare_ctemplate DATA TEMPLATES [letters OUTPUT]. Answers commands: Driver.h. Its templates read texts
// from a dictionary, so numbers have been made into digits before.

namespace tavlo::compare {

namespace {

using Dictionary = ctemplate::TemplateDictionary;

std::string inCapitals(std::string_view name) {
  std::string out(name);
  for (char& letter : out) letter = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
  return out;
}

std::string textOf(const rapidjson::Value& value) {
  return value.IsString() ? std::string(value.GetString(), value.GetStringLength()) : std::to_string(value.GetInt64());
}

void fillTable(Dictionary& out, const rapidjson::Value& data) {
  for (const rapidjson::Value& row : data["rows"].GetArray()) {
    Dictionary* const cells = out.AddSectionDictionary("ROWS");
    for (const rapidjson::Value& cell : row.GetArray()) {
      cells->AddSectionDictionary("CELLS")->SetValue("CELL", textOf(cell));
    }
  }
}

void fillTeams(Dictionary& out, const rapidjson::Value& data) {
  out.SetValue("TITLE", textOf(data["title"]));
  bool isFirst = true;
  for (const rapidjson::Value& each : data["teams"].GetArray()) {
    Dictionary* const team = out.AddSectionDictionary("TEAMS");
    team->SetValue("NAME", textOf(each["name"]));
    team->SetValue("SCORE", textOf(each["score"]));
    if (isFirst) team->ShowSection("CHAMPION");
    isFirst = false;
  }
}

void fillLetters(Dictionary& out, const rapidjson::Value& data) {
  for (const rapidjson::Value& each : data["letters"].GetArray()) {
    Dictionary* const letter = out.AddSectionDictionary("LETTERS");
    for (const char* name : {"number", "date", "name", "street", "postcode", "city", "total"}) {
      letter->SetValue(inCapitals(name), textOf(each[name]));
    }
    letter->ShowSection(each["regular"].GetInt64() != 0 ? "REGULAR" : "POSTAGE");
    for (const rapidjson::Value& element : each["items"].GetArray()) {
      Dictionary* const item = letter->AddSectionDictionary("ITEMS");
      item->SetValue("COUNT", textOf(element["count"]));
      item->SetValue("ITEM", textOf(element["name"]));
    }
  }
}

std::unique_ptr<ctemplate::Template> compile(const std::string& text) {
  std::unique_ptr<ctemplate::Template> compiled(ctemplate::Template::StringToTemplate(text, ctemplate::DO_NOT_STRIP));
  if (compiled == nullptr) throw std::runtime_error("the template does not compile");
  return compiled;
}

class Page {
 public:
  Page(const std::string& data, const std::string& templates, const std::string& name)
      : template_(compile(readFile(templates + "/" + name.substr(0, name.find('-')) + ".tpl"))) {
    rapidjson::Document document;
    document.Parse(readFile(data + "/" + name + ".json").c_str());
    if (document.HasParseError()) throw std::runtime_error("the data does not parse");
    if (name.starts_with("table")) fillTable(dictionary_, document);
    if (name == "teams") fillTeams(dictionary_, document);
    if (name == "letters") fillLetters(dictionary_, document);
    room_ = output().size();
  }

  std::string output() {
    std::string out;
    out.reserve(room_);
    ctemplate::StringEmitter emitter(&out);
    if (!template_->Expand(&emitter, &dictionary_)) throw std::runtime_error("the template failed");
    return out;
  }

 private:
  std::unique_ptr<ctemplate::Template> template_;
  Dictionary dictionary_{"page"};
  std::size_t room_ = 0;
};

double bytesOfTemplate(const std::string& text) {
  (void)compile(text);
  const std::uint64_t before = allocatedBytes();
  const auto compiled = compile(text);
  return static_cast<double>(allocatedBytes() - before) / static_cast<double>(text.size());
}

Workload prepare(const std::string& data, const std::string& templates, const std::string& name) {
  if (name.starts_with("compile-")) {
    const std::string text = readFile(data + "/ctemplate-" + name + ".txt");
    return {.run = [text] { (void)compile(text); }, .output = {}, .memory = [text] { return bytesOfTemplate(text); }};
  }
  const auto page = std::make_shared<Page>(data, templates, name);
  return {.run = [page] { (void)page->output(); }, .output = [page] { return page->output(); }, .memory = {}};
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.size() == 4) {
    writeFile(arguments[3], Page(arguments[0], arguments[1], "letters").output());
    return 0;
  }
  if (arguments.size() != 2) throw std::runtime_error("usage: compare_ctemplate DATA TEMPLATES [letters OUTPUT]");
  return serve([&](std::string_view name) { return prepare(arguments[0], arguments[1], std::string(name)); });
}

}  // namespace

}  // namespace tavlo::compare

int main(int argc, char** argv) {
  try {
    return tavlo::compare::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
