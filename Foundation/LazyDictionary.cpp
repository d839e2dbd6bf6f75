#include "Foundation/LazyDictionary.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

// A class of the host's must have one.
std::unique_ptr<LazyDictionary::Walk> walkOver(const LazyDictionary& dictionary) {
  std::unique_ptr<LazyDictionary::Walk> walk = dictionary.walk();
  requireParameter(walk != nullptr, "walk != nil");
  return walk;
}

class EntryEnumerator final : public NSEnumerator {
 public:
  explicit EntryEnumerator(Ref<LazyDictionary> dictionary)
      : dictionary_(std::move(dictionary)), walk_(walkOver(*dictionary_)) {}

  Value nextObject() override {
    checkStack();  // the host's code may ask another dictionary
    std::string_view key;
    Value value;
    return walk_->next(key, value, reused_) ? value : Value();
  }

 private:
  Ref<LazyDictionary> dictionary_;
  std::unique_ptr<LazyDictionary::Walk> walk_;
  ReusableInstances reused_;
};

}  // namespace

LazyDictionary::Walk::~Walk() = default;

LazyDictionary::~LazyDictionary() = default;

std::vector<Ref<NSString>> LazyDictionary::keys() const {
  std::vector<Ref<NSString>> keys;
  const Ref<NSDictionary> entries = dictionary();
  for (const NSDictionary::Entry& entry : entries->entries()) keys.push_back(entry.key);
  return keys;
}

Ref<NSDictionary> LazyDictionary::dictionary() const {
  checkStack();  // the host's code may ask another dictionary, and so on
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  lookBeforeHost();
  const std::unique_ptr<Walk> entries = walkOver(*this);
  ReusableInstances reused;
  std::string_view key;
  const WorkCounter work;
  for (;;) {
    lookBeforeHost();
    Value value;
    if (!entries->next(key, value, reused)) break;
    work.step();
    dictionary->setObjectForKey(std::move(value), key);
  }
  return dictionary;
}

const char* LazyDictionary::className() const {
  return "NSDictionary";
}

void LazyDictionary::describe(Description& out) const {
  out.dictionary(*dictionary());
}

bool LazyDictionary::isEqual(const NSObject& other, std::int32_t depth) const {
  if (other.kind() == ObjectKind::Dictionary) return dictionary()->isEqual(other, depth);
  return other.kind() == ObjectKind::LazyDictionary &&
         dictionary()->isEqual(*static_cast<const LazyDictionary&>(other).dictionary(), depth);
}

std::size_t LazyDictionary::hash() const {
  return dictionary()->hash();
}

bool LazyDictionary::findValueForKey(const NSString& key, Value& value) const {
  checkStack();
  lookBeforeHost();
  value = objectForKey(key.view());
  if (value.isAbsent() && key.view() == "@count") value = count();
  return true;
}

Ref<NSEnumerator> LazyDictionary::objectEnumerator() const {
  return makeRef<EntryEnumerator>(
      Ref<LazyDictionary>::retaining(const_cast<LazyDictionary*>(this)));  // NOLINT(*-const-cast): counted
}

}  // namespace tavlo
