#pragma once

#include <atomic>
#include <string>

#include "Foundation/Description.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"

namespace tavlo::test {

// A host's object that says nothing of itself and counts how many of its kind are alive.
class Tracked : public NSObject {
 public:
  explicit Tracked(int& alive) : alive_(alive) { ++alive_; }
  ~Tracked() override { --alive_; }

 private:
  int& alive_;
};

// A host's object with a name, an order, one property, and leave to be shared.
class Named final : public NSObject {
 public:
  explicit Named(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }

  const char* className() const override { return "Named"; }
  void describe(Description& out) const override { out.part("named " + name_); }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const auto* named = dynamic_cast<const Named*>(&other);
    return named != nullptr && named->name_ == name_;
  }
  std::size_t hash() const override { return name_.size(); }
  std::optional<bool> isLessThan(const Value& other) const override {
    const Named* named = other.as<Named>();
    return named == nullptr ? std::optional<bool>() : name_ < named->name_;
  }
  std::optional<bool> isGreaterThan(const Value& other) const override {
    const Named* named = other.as<Named>();
    return named == nullptr ? std::optional<bool>() : name_ > named->name_;
  }
  Value valueForKey(const NSString& key) const override {
    if (key.view() == "name") return name_;
    if (key.view() == "nothing") return {};
    return NSObject::valueForKey(key);
  }
  bool canBeShared() const override { return true; }

 private:
  std::string name_;
};

}  // namespace tavlo::test
