#include "Foundation/HostClassTable.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "Foundation/HostInstance.h"
#include "Foundation/LentValue.h"
#include "Foundation/NSException.h"

namespace tavlo {

namespace {

constinit thread_local const HostClassTable::Making* latestMaking = nullptr;

// As a program's text has it.
std::string nameOf(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return readable == nullptr ? type.name() : readable.get();
}

// The property of a base, read from an object of the class that inherits it.
class InheritedProperty final : public HostProperty {
 public:
  InheritedProperty(std::shared_ptr<const HostProperty> property, HostClassTable::Upcast asBase)
      : HostProperty(property->isPlainMember()), property_(std::move(property)), asBase_(asBase) {}

  RawValue read(void* object, const HostInstance& holder) const override {
    return property_->read(asBase_(object), holder);
  }
  void lend(void* object, const HostInstance& holder, LentValue& lent) const override {
    property_->lend(asBase_(object), holder, lent);
  }

 private:
  std::shared_ptr<const HostProperty> property_;
  HostClassTable::Upcast asBase_;
};

}  // namespace

HostClassTable::Making::Making(const void* description, const std::type_info& type)
    : description_(description), outer_(latestMaking) {
  for (const Making* making = outer_; making != nullptr; making = making->outer_) {
    if (making->description_ != description) continue;
    NSException::raise(NSInvalidArgumentException,
                       "The description of the host class %s makes a value of that class, or another's does",
                       nameOf(type));
  }
  latestMaking = this;
}

HostClassTable::Making::~Making() {
  latestMaking = outer_;
}

HostProperty::~HostProperty() = default;

void HostProperty::lend(void* object, const HostInstance& holder, LentValue& lent) const {
  lent.set(Value::adopt(read(object, holder)));
}

std::string HostClassTable::typeName() const {
  return nameOf(type_);
}

void HostClassTable::setName(std::string_view name) {
  const Name checked(name);
  if (name.empty()) {
    NSException::raise(NSInvalidArgumentException, "The name in the description of the host class %s is empty",
                       typeName());
  }
  name_ = checked.view();
}

HostClassTable::Entry* HostClassTable::entryFor(std::string_view key) {
  const auto found = std::ranges::find_if(entries_, [key](const Entry& entry) { return entry.key->view() == key; });
  return found == entries_.end() ? nullptr : &*found;
}

void HostClassTable::addProperty(std::string_view key, std::unique_ptr<HostProperty> property) {
  const Ref<NSString> text = NSString::stringWithUTF8(key);
  if (key.empty() || key.find('.') != std::string_view::npos) {
    NSException::raise(NSInvalidArgumentException,
                       "The description of the host class %s has a property \"%s\": a key has one character at least, "
                       "and no \".\", which parts keys",
                       typeName(), key);
  }
  (void)text->hash32();  // computed on demand, and kept: threads read it
  text->markShared();
  Entry* const known = entryFor(key);
  if (known == nullptr) return entries_.push_back({text, std::move(property), false});
  if (!known->isInherited) {
    NSException::raise(NSInvalidArgumentException,
                       "The description of the host class %s has two properties named \"%s\"", typeName(), key);
  }
  *known = {text, std::move(property), false};
}

void HostClassTable::inherit(const HostClassTable& base, Upcast asBase) {
  bases_.push_back({&base, asBase});
  methods_.inherit(base.methods_, asBase);
  std::vector<Entry> own = std::exchange(entries_, {});
  std::ranges::copy_if(own, std::back_inserter(entries_), &Entry::isInherited);
  for (const Entry& entry : base.entries_) inheritProperty(entry, asBase);
  for (const Entry& entry : own) {
    if (entry.isInherited) continue;
    Entry* const inherited = entryFor(entry.key->view());
    inherited == nullptr ? entries_.push_back(entry) : void(*inherited = entry);
  }
}

void HostClassTable::inheritProperty(const Entry& inherited, Upcast asBase) {
  Entry entry{inherited.key, std::make_shared<InheritedProperty>(inherited.property, asBase), true};
  Entry* const known = entryFor(entry.key->view());
  if (known == nullptr) return entries_.push_back(std::move(entry));
  *known = std::move(entry);
}

void HostClassTable::inheritComparisons(const Operations& inherited, Upcast asBase) {
  if (!operations_.isLessThan && inherited.isLessThan) {
    operations_.isLessThan = [&inherited, asBase](void* object, const Value& other) {
      return inherited.isLessThan(asBase(object), other);
    };
  }
  if (!operations_.isGreaterThan && inherited.isGreaterThan) {
    operations_.isGreaterThan = [&inherited, asBase](void* object, const Value& other) {
      return inherited.isGreaterThan(asBase(object), other);
    };
  }
}

void HostClassTable::inheritOperations(const HostClassTable& base, Upcast asBase) {
  const Operations& inherited = base.operations_;
  inheritComparisons(inherited, asBase);
  if (!operations_.describe && inherited.describe) {
    operations_.describe = [&inherited, asBase](void* object, Description& out) {
      inherited.describe(asBase(object), out);
    };
  }
  if (!operations_.enumerate && inherited.enumerate) {
    operations_.enumerate = [&inherited, asBase](void* object, const HostInstance& holder) {
      return inherited.enumerate(asBase(object), holder);
    };
  }
}

void HostClassTable::complete() {
  if (name_.empty()) {
    NSException::raise(NSInvalidArgumentException, "The description of the host class %s gives it no name", typeName());
  }
  std::for_each(bases_.rbegin(), bases_.rend(),
                [this](const Base& base) { inheritOperations(*base.table, base.asBase); });
  static std::atomic<std::uint32_t> numbers{1};
  count_ = static_cast<std::uint32_t>(entries_.size());
  firstNumber_ = numbers.fetch_add(count_, std::memory_order_relaxed);
  properties_ = std::make_unique<const HostProperty*[]>(count_);
  for (std::uint32_t index = 0; index < count_; ++index) properties_[index] = entries_[index].property.get();
  slots_.grow(SlotIndex::sizeFor(count_), count_, [this](std::size_t index) { return entries_[index].key->hash32(); });
}

std::uint32_t HostClassTable::indexOf(const NSString& key) const noexcept {
  return slots_.find(key.hash32(), [&](std::uint32_t index) { return entries_[index].key->hasSameText(key); });
}

const HostProperty* HostClassTable::findAnew(const NSString& key, std::atomic<std::uint32_t>& number) const noexcept {
  const std::uint32_t index = indexOf(key);
  if (index == SlotIndex::kNowhere) return nullptr;
  number.store(firstNumber_ + index, std::memory_order_relaxed);
  return entries_[index].property.get();
}

std::vector<Ref<NSString>> HostClassTable::keys() const {
  std::vector<Ref<NSString>> keys;
  for (const Entry& entry : entries_) keys.push_back(entry.key);
  return keys;
}

void* HostClassTable::objectAs(void* object, const HostClassTable& wanted) const noexcept {
  if (isSame(wanted)) return object;
  for (const Base& base : bases_) {
    if (void* const found = base.table->objectAs(base.asBase(object), wanted)) return found;
  }
  return nullptr;
}

const HostClassTable* HostClassTable::findEquality() const noexcept {
  if (operations_.isEqual) return this;
  for (auto base = bases_.rbegin(); base != bases_.rend(); ++base) {
    if (const HostClassTable* const found = base->table->findEquality()) return found;
  }
  return nullptr;
}

}  // namespace tavlo
