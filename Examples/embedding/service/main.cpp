// A service of the program with properties and methods. A template reads its properties; its methods are called as
// functions, each bound to the object by its selector.
#include <tavlo/tavlo.h>

#include <cstdint>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace {

class Warehouse {
 public:
  explicit Warehouse(std::string town) : town_(std::move(town)) {}

  const std::string& town() const { return town_; }
  std::int64_t count() const { return count_; }

  double price(std::string_view article) const {
    const auto found = prices_.find(article);
    return found == prices_.end() ? 0 : found->second;
  }
  double priceDiscounted(std::string_view article, double percent) const {
    return price(article) * (100 - percent) / 100;
  }
  void take(std::int64_t count) { count_ -= count; }

 private:
  std::string town_;
  std::int64_t count_ = 40;
  std::map<std::string, double, std::less<>> prices_ = {{"lamp", 80}, {"rope", 12.5}};
};

void describeHostClass(tavlo::HostClass<Warehouse>& warehouse) {
  warehouse.name("Warehouse")
      .property("town", &Warehouse::town)
      .property("count", &Warehouse::count)
      .method("priceOf:", &Warehouse::price)
      .method("priceOf:discount:", &Warehouse::priceDiscounted)
      .method("take:", &Warehouse::take);
}

constexpr const char* kOffer = R"(<?= $warehouse.town ?>, <?= $warehouse.count ?> in stock
Lamp: <?= price("lamp") ?>, for you <?= discounted("lamp", 25) ?>
Rope: <?= price("rope") ?>, for you <?= discounted("rope", 20) ?>
<? take(3) ?>Left: <?= $warehouse.count ?>
)";

}  // namespace

int main() {
  // Owned by the program and by what it is bound to: the functions outlive the variable here.
  auto warehouse = std::make_shared<Warehouse>("Whitby");
  const auto environment = tavlo::KorTemplateEnvironment::environment();
  const auto output = tavlo::KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  environment->setGlobal("warehouse", tavlo::hostShared(warehouse));
  for (const auto& [name, selector] :
       {std::pair{"price", "priceOf:"}, {"discounted", "priceOf:discount:"}, {"take", "take:"}}) {
    environment->setFunctionForName(tavlo::KorTemplateExternalFunction::functionWithSelectorOwning(selector, warehouse),
                                    name);
  }
  warehouse.reset();

  tavlo::KorTemplate::compile(kOffer)->executeWithEnvironment(environment.get());
  std::cout << output->buffer()->string();
}
