// An output stream of the program's own. This one numbers the lines and prints each as soon as it is whole, so that
// long output is never held as a whole; diagnostics go to a stream of their own.
#include <tavlo/tavlo.h>

#include <iostream>
#include <string>

namespace {

class NumberedLines final : public tavlo::KorTemplateStream {
 public:
  // Takes the text of one output statement, which may hold a part of a line or several lines.
  void write(const tavlo::Text& text) override {
    for (const char letter : text.view()) {
      if (letter == '\n') {
        printLine();
      } else {
        line_ += letter;
      }
    }
  }

  // Called at the end of each run, also of one that fails.
  void flush() override {
    if (!line_.empty()) printLine();
  }

 private:
  void printLine() {
    std::cout << ++number_ << ": " << line_ << '\n';
    line_.clear();
  }

  int number_ = 0;
  std::string line_;
};

}  // namespace

int main() {
  const auto report = tavlo::KorTemplate::compile(
      "Stations\n<? foreach ($station in $stations) ?>- <?= $station ?>\n<? endforeach ?>no new line here");
  const auto environment = tavlo::KorTemplateEnvironment::environment();
  environment->setOutputStream(tavlo::makeRef<NumberedLines>());
  environment->setGlobal("stations", tavlo::NSArray::arrayWithObjects({"North Quay", "Mill Lane", "Old Town"}));
  report->executeWithEnvironment(environment.get());
}
