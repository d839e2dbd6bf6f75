#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Examples/Catalogue.h"
#include "Tool/JSONReader.h"

namespace tavlo::test {

namespace {

// One folder of Examples/: its template and data bear its name.
struct Example {
  const char* name;
  const char* expected;

  std::string path(const std::string& file) const {
    return std::string(TAVLO_SOURCE_DIR "/Examples/") + name + "/" + file;
  }
  std::string templatePath() const { return path(std::string(name) + ".tavlo"); }
  std::string dataPath() const { return path(std::string(name) + ".json"); }
};

constexpr Example kExamples[] = {
    {"catalogue", "expected.html"}, {"changelog", "expected.md"}, {"header", "expected.h"},
    {"invoice", "expected.txt"},    {"nginx", "expected.conf"},
};

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

struct Rendering {
  std::string output;
  std::string diagnostics;
};

Rendering render(const std::string& text, const std::string& data) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStringStream> output = KorTemplateStringStream::stringStream();
  const Ref<KorTemplateStringStream> errors = KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  environment->setErrorStream(errors);
  const Ref<NSDictionary> globals = readJSONObject(data);
  for (const NSDictionary::Entry& entry : globals->entries()) {
    environment->setValueForGlobalVariableWithName(entry.value, entry.key->view());
  }
  KorTemplate::compile(text)->executeWithEnvironment(environment.get());
  return {std::string(output->buffer()->string()), std::string(errors->buffer()->string())};
}

// The data with one text in place of another, which it must hold.
std::string replaced(std::string data, const std::string& from, const std::string& to) {
  const std::size_t at = data.find(from);
  if (at == std::string::npos) throw std::runtime_error("no " + from + " to replace");
  return data.replace(at, from.size(), to);
}

// A folder of its own that goes with the object.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tavlo-examples-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a folder like " + pattern);
    path_ = pattern;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string path(const std::string& name) const { return (path_ / name).string(); }
  std::string write(const std::string& name, const std::string& text) const {
    const std::string file = path(name);
    std::ofstream(file, std::ios::binary) << text;
    return file;
  }

 private:
  std::filesystem::path path_;
};

// What the command writes to standard output and standard error, and then its exit status where it is not 0.
std::string run(const std::string& command) {
  std::FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  std::string output;
  char piece[4096];
  while (const std::size_t count = std::fread(piece, 1, sizeof piece, pipe)) output.append(piece, count);
  const int status = pclose(pipe);
  if (status != 0) output += "\n(status " + std::to_string(WEXITSTATUS(status)) + ")";
  return output;
}

std::string quoted(const std::string& path) {
  return "'" + path + "'";
}

class ExampleTest : public testing::TestWithParam<Example> {};

TEST_P(ExampleTest, RendersWhatIsExpected) {
  const Rendering rendering = render(readFile(GetParam().templatePath()), readFile(GetParam().dataPath()));
  EXPECT_EQ(rendering.output, readFile(GetParam().path(GetParam().expected)));
  EXPECT_EQ(rendering.diagnostics, "");
}

TEST_P(ExampleTest, RendersTheSameByTheCommandOfItsDescription) {
  const std::string command = "render " + quoted(GetParam().templatePath()) + " -d " + quoted(GetParam().dataPath());
  EXPECT_EQ(run(quoted(TAVLO_PROGRAM) + " " + command), readFile(GetParam().path(GetParam().expected)));
  const std::string name = GetParam().name;
  EXPECT_THAT(readFile(TAVLO_SOURCE_DIR "/Examples/README.md"),
              testing::HasSubstr("build/tavlo render Examples/" + name + "/" + name + ".tavlo -d Examples/" + name +
                                 "/" + name + ".json\n"));
}

INSTANTIATE_TEST_SUITE_P(Examples, ExampleTest, testing::ValuesIn(kExamples),
                         [](const testing::TestParamInfo<Example>& info) { return std::string(info.param.name); });

TEST(Examples, EveryFolderIsTested) {
  std::vector<std::string> folders;
  for (const auto& entry : std::filesystem::directory_iterator(TAVLO_SOURCE_DIR "/Examples")) {
    if (entry.is_directory()) folders.push_back(entry.path().filename().string());
  }
  std::vector<std::string> names;
  for (const Example& example : kExamples) names.emplace_back(example.name);
  names.emplace_back("embedding");  // programs, which are tested over the installed library
  EXPECT_THAT(folders, testing::UnorderedElementsAreArray(names));
}

TEST(CatalogueExample, OfAThousandProductsIsThatOfAHandWrittenProgram) {
  const Catalogue catalogue = makeCatalogue(1000);
  const Rendering rendering =
      render(readFile(TAVLO_SOURCE_DIR "/Examples/catalogue/catalogue.tavlo"), catalogueAsJSON(catalogue));
  EXPECT_EQ(rendering.diagnostics, "");
  // Compared as a whole, shown in part: the page is long.
  const std::string expected = renderCatalogue(catalogue);
  const auto [differing, instead] =
      std::mismatch(expected.begin(), expected.end(), rendering.output.begin(), rendering.output.end());
  const auto at = static_cast<std::size_t>(differing - expected.begin());
  EXPECT_TRUE(rendering.output == expected) << "at byte " << at << ":\n"
                                            << rendering.output.substr(at, 200) << "\ninstead of:\n"
                                            << expected.substr(at, 200);
}

TEST(CatalogueExample, HasProductsOfEveryKind) {
  const std::string page = renderCatalogue(makeCatalogue(1000));
  for (const char* piece : {"<p>1000 products, from 9 EUR to 488 EUR</p>", "\" class=\"sale\">", "\">\n  <h2>",
                            "<p class=\"stock\">In stock</p>", "<p class=\"stock\">Only 1 left</p>",
                            "<p class=\"stock\">Back in March</p>", "<article id=\"product-1000\""}) {
    EXPECT_THAT(page, testing::HasSubstr(piece));
  }
}

struct InvoiceRow {
  const char* what;
  const char* from;
  const char* to;
  const char* output;
};

TEST(InvoiceExample, FollowsItsData) {
  const InvoiceRow rows[] = {
      {"a customer abroad pays no tax", "\"country\": \"DE\",\n    \"vatId\": \"DE123456789\"",
       "\"country\": \"SE\",\n    \"vatId\": \"SE123456789001\"", "VAT 0 %          0.00\n"},
      {"a firm abroad owes the tax itself", "\"country\": \"DE\",\n    \"vatId\": \"DE123456789\"",
       "\"country\": \"SE\",\n    \"vatId\": \"SE123456789001\"",
       "\nReverse charge: VAT is due from the customer (SE123456789001).\n"},
      {"a customer abroad without a number is an export", "\"country\": \"DE\",\n    \"vatId\": \"DE123456789\"",
       "\"country\": \"NO\"", "\nExempt from VAT: this is an export of services.\n"},
      {"nothing to wait for", "\"terms\": 30", "\"terms\": 0", "\nPlease pay on receipt.\n"},
      {"one day to pay", "\"terms\": 30", "\"terms\": 1", "\nPlease pay by tomorrow, 21 December 2026.\n"},
      {"millions", "\"amount\": 114000", "\"amount\": 100500004", "Net  1,009,662.93\n"},
      {"tax is rounded up", "\"amount\": 114000", "\"amount\": 114004", "VAT 19 %      1,102.56\n"},
      {"tax is rounded down", "\"amount\": 114000", "\"amount\": 114003", "VAT 19 %      1,102.55\n"},
      {"cents have two digits", "\"amount\": 7290", "\"amount\": 7206", "         72.06\n"},
  };
  const std::string text = readFile(TAVLO_SOURCE_DIR "/Examples/invoice/invoice.tavlo");
  const std::string data = readFile(TAVLO_SOURCE_DIR "/Examples/invoice/invoice.json");
  for (const InvoiceRow& row : rows) {
    const Rendering rendering = render(text, replaced(data, row.from, row.to));
    EXPECT_THAT(rendering.output, testing::HasSubstr(row.output)) << row.what;
    EXPECT_EQ(rendering.diagnostics, "") << row.what;
  }
}

TEST(HeaderExample, IsAHeaderThatCompilesAndMeansItsSchema) {
  const Rendering rendering = render(readFile(TAVLO_SOURCE_DIR "/Examples/header/header.tavlo"),
                                     readFile(TAVLO_SOURCE_DIR "/Examples/header/header.json"));
  const TemporaryFolder folder;
  folder.write("orders.h", rendering.output);
  const std::string program = folder.path("user");
  const std::string user = folder.write("user.cpp", R"(
#include "orders.h"
#include "orders.h"

#include <type_traits>

static_assert(static_cast<int>(shop::State::Cancelled) == 3);
static_assert(sizeof(shop::State) == 1 && sizeof(shop::Carrier) == 2);
static_assert(std::is_same_v<decltype(shop::Customer::id), std::uint64_t>);
static_assert(std::is_same_v<decltype(shop::Order::items), std::vector<shop::Item>>);
static_assert(std::is_same_v<decltype(shop::Item::picture), std::optional<std::string>>);

int main() {
  const shop::Order order;
  const shop::Item item;
  const bool isOrder = order == shop::Order{} && order.state == shop::State::Open && order.currency == "EUR";
  const bool isItem = item.quantity == 1 && item.weight == 0.25 && item.price == 0 && !item.picture;
  const bool isCustomer = order.customer.newsletter && !order.customer.blocked;
  return isOrder && isItem && isCustomer && nameOf(shop::State::Paid) == std::string("paid") ? 0 : 1;
}
)");
  EXPECT_EQ(
      run(quoted(TAVLO_COMPILER) + " -std=c++20 -Wall -Wextra -Werror -o " + quoted(program) + " " + quoted(user)), "");
  EXPECT_EQ(run(quoted(program)), "");
}

}  // namespace

}  // namespace tavlo::test
