#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/HostClass.h"
#include "Foundation/HostObject.h"
#include "Foundation/NSKeyValueCoding.h"

namespace tavlo::test {

// Classes of a host that know nothing of templates, and their descriptions.

class Maker {
 public:
  explicit Maker(std::string name) : name_(std::move(name)) {}
  virtual ~Maker() = default;

  const std::string& name() const noexcept { return name_; }
  virtual int founded() const { return 1900; }

 private:
  std::string name_;
};

class YoungMaker final : public Maker {
 public:
  using Maker::Maker;
  int founded() const override { return 2020; }
  bool isListed() const { return false; }
};

inline void describeHostClass(HostClass<Maker>& maker) {
  maker.name("Maker").property("name", &Maker::name).property("founded", &Maker::founded);
}
inline void describeHostClass(HostClass<YoungMaker>& maker) {
  maker.name("YoungMaker").inherits<Maker>().property("isListed", &YoungMaker::isListed);
}

struct Product {
  std::string name;
  double price = 0;
  std::int64_t stock = 0;
  std::vector<std::string> tags = {};
  std::optional<std::string> note = {};
  Maker* maker = nullptr;
  int reads = 0;

  std::string_view code() const noexcept { return std::string_view(name).substr(0, 1); }
  int countReads() { return ++reads; }
};

inline void describeHostClass(HostClass<Product>& product) {
  product.name("Product")
      .property("name", &Product::name)
      .property("price", &Product::price)
      .property("stock", &Product::stock)
      .property("tags", &Product::tags)
      .property("note", &Product::note)
      .property("maker", &Product::maker)
      .property("code", &Product::code)
      .property("reads", &Product::countReads)
      .property("isCheap", [](const Product& each) { return each.price < 10; })
      .property("label", [](const Product& each) { return each.name + "!"; })
      .canBeShared();
}

// What an object's path leads to.
inline Value read(const Value& object, std::string_view path) {
  return valueForKeyPath(object, path);
}

}  // namespace tavlo::test
