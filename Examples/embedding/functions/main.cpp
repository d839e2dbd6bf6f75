// Functions of the program in templates: whatever can be called becomes one, and its arguments are checked and
// converted by their types.
#include <tavlo/tavlo.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace {

std::string money(double amount, std::string_view currency) {
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%.2f ", amount);
  return text.data() + std::string(currency);
}

// The last argument may be left out.
std::string shortened(std::string_view text, std::optional<std::int64_t> length) {
  const std::size_t longest = static_cast<std::size_t>(length.value_or(10));
  return text.size() <= longest ? std::string(text) : std::string(text.substr(0, longest)) + "...";
}

constexpr const char* kBill = R"(<?= shortened($title) ?> / <?= shortened($title, 4) ?>
Total: <?= money($total, "EUR") ?>
Ticket <?= ticket() ?>, ticket <?= ticket() ?>
Stock: <?= stock("lamp") ?><?= stock("unicorn") ?>
Wrong: <?= money("much", "EUR") ?>
)";

}  // namespace

int main() {
  const auto environment = tavlo::KorTemplateEnvironment::environment();
  const auto output = tavlo::KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  environment->setErrorStream(output);  // what a function has against its call, here for all to see

  environment->setFunction("money", money);
  environment->setFunction("shortened", shortened);
  environment->setFunction("ticket", [number = 100]() mutable { return ++number; });
  environment->setFunction("stock", [](std::string_view article) {
    if (article != "lamp") throw std::runtime_error("no such article: " + std::string(article));
    return 12;
  });

  environment->setGlobal("title", "A lamp for the harbour");
  environment->setGlobal("total", 1250.5);
  tavlo::KorTemplate::compile(kBill)->executeWithEnvironment(environment.get());
  std::cout << output->buffer()->string();
}
