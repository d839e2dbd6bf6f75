#include "Foundation/HostInstance.h"

#include <unordered_set>
#include <utility>
#include <vector>

#include "Foundation/BoundMethod.h"
#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/StackGuard.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

// Lets go of an object that is counted itself.
struct Release {
  void operator()(const void* /*object*/) const { holder->release(); }
  const NSObject* holder;
};

// Keeps something that refers into what another owner keeps, and that owner, which is let go of behind it. Either may
// be such a pair again, and so on: in a chain, which may be long.
struct OwnerPair {
  std::shared_ptr<const void> kept;
  std::shared_ptr<const void> referredTo;
  std::unique_ptr<OwnerPair> next;  // to be taken apart behind this one
};

// Whoever takes pairs apart on this thread and has let go of a pair's owner just now.
[[gnu::tls_model("initial-exec")]] constinit thread_local std::unique_ptr<OwnerPair>* takingApart = nullptr;

class ReleasePair {
 public:
  explicit ReleasePair(std::unique_ptr<OwnerPair> pair) : pair_(std::move(pair)) {}

  void operator()(const void* /*object*/) {
    if (takingApart != nullptr) {
      pair_->next = std::move(*takingApart);
      *std::exchange(takingApart, nullptr) = std::move(pair_);
      return;
    }
    while (pair_ != nullptr) {
      std::shared_ptr<const void> owner = std::move(pair_->kept);
      if (owner == nullptr) {
        owner = std::move(pair_->referredTo);
        pair_ = std::move(pair_->next);
      }
      // The last one to let go of another pair adds it to these; what else ends here is not within this work.
      if (std::get_deleter<ReleasePair>(owner) != nullptr) takingApart = &pair_;
      owner.reset();
      takingApart = nullptr;
    }
  }

  const OwnerPair& pair() const noexcept { return *pair_; }

 private:
  std::unique_ptr<OwnerPair> pair_;
};

}  // namespace

HostInstance::~HostInstance() = default;

std::shared_ptr<const void> HostInstance::owner() const {
  if (!isItself_) return owner_;
  retain();
  return {object_, Release{this}};
}

Ref<HostInstance> HostInstance::constant() const {
  if (isItself_) return makeRef<HostInstance>(*table_, static_cast<const void*>(object_), owner());
  return Ref<HostInstance>::retaining(const_cast<HostInstance*>(this));  // NOLINT(*-const-cast): counted
}

std::shared_ptr<const void> HostInstance::ownerOf(const NSObject* holder) {
  if (holder == nullptr) return {};
  if (holder->kind() == ObjectKind::HostObject) return static_cast<const HostInstance*>(holder)->owner();
  holder->retain();
  return {static_cast<const void*>(holder), Release{holder}};
}

std::shared_ptr<const void> HostInstance::ownerOfBoth(std::shared_ptr<const void> kept,
                                                      std::shared_ptr<const void> referredTo) {
  if (referredTo == nullptr) return kept;
  const void* const object = kept.get();
  return {object, ReleasePair(std::make_unique<OwnerPair>(OwnerPair{std::move(kept), std::move(referredTo), nullptr}))};
}

bool HostInstance::canShareOwner(const std::shared_ptr<const void>& owner) {
  std::vector<const std::shared_ptr<const void>*> open = {&owner};
  std::unordered_set<const OwnerPair*> seen;
  while (!open.empty()) {
    const std::shared_ptr<const void>& current = *open.back();
    open.pop_back();
    if (const ReleasePair* const release = std::get_deleter<ReleasePair>(current)) {
      if (seen.insert(&release->pair()).second) {
        open.insert(open.end(), {&release->pair().kept, &release->pair().referredTo});
      }
    } else if (const Release* const counted = std::get_deleter<Release>(current)) {
      if (!counted->holder->isShared()) return false;
    }
  }
  return true;
}

void* HostInstance::find(const Value& value, const HostClassTable& wanted, bool mayBeConstant) noexcept {
  const NSObject* const held = value.object();
  if (held == nullptr || held->kind() != ObjectKind::HostObject) return nullptr;
  const auto& instance = static_cast<const HostInstance&>(*held);
  if (instance.isConstant_ && !mayBeConstant) return nullptr;
  return instance.table_->objectAs(instance.object_, wanted);
}

const char* HostInstance::className() const {
  return table_->name().c_str();
}

void HostInstance::describe(Description& out) const {
  const auto& describe = table_->operations().describe;
  if (!describe) return NSObject::describe(out);
  checkStack();  // the host's code may ask another object, and so on
  lookBeforeHost();
  describe(object_, out);
}

const void* HostInstance::identity() const {
  const auto& whole = table_->operations().whole;
  return whole ? whole(object_) : object_;
}

bool HostInstance::isEqual(const NSObject& other, std::int32_t /*depth*/) const {
  if (other.kind() != ObjectKind::HostObject) return false;
  const auto& instance = static_cast<const HostInstance&>(other);
  if (const HostClassTable* const judge = table_->findEquality()) {
    checkStack();
    lookBeforeHost();
    void* const compared = instance.table_->objectAs(instance.object_, *judge);
    return compared != nullptr && judge->operations().isEqual(table_->objectAs(object_, *judge), compared);
  }
  // An object and its first member lie in one place.
  return identity() == instance.identity() && (table_->objectAs(object_, *instance.table_) != nullptr ||
                                               instance.table_->objectAs(instance.object_, *table_) != nullptr);
}

std::size_t HostInstance::hash() const {
  if (const HostClassTable* const judge = table_->findEquality()) {
    checkStack();
    lookBeforeHost();
    return judge->operations().hash(table_->objectAs(object_, *judge));
  }
  return reinterpret_cast<std::uintptr_t>(identity()) >> 3;
}

std::optional<bool> HostInstance::isLessThan(const Value& other) const {
  const auto& isLessThan = table_->operations().isLessThan;
  if (!isLessThan) return {};
  checkStack();
  lookBeforeHost();
  return isLessThan(object_, other);
}

std::optional<bool> HostInstance::isGreaterThan(const Value& other) const {
  const auto& isGreaterThan = table_->operations().isGreaterThan;
  if (!isGreaterThan) return {};
  checkStack();
  lookBeforeHost();
  return isGreaterThan(object_, other);
}

Value HostInstance::valueForKey(const NSString& key) const {
  Value value;
  return findValueForKey(key, value) ? value : NSObject::valueForKey(key);
}

bool HostInstance::findValueForKey(const NSString& key, Value& value) const {
  const HostProperty* const property = table_->find(key);
  if (property == nullptr) return false;
  checkStack();
  value = Value::adopt(property->read(object_, *this));
  return true;
}

BoundMethod HostInstance::methodForSelector(const Selector& selector) const {
  if (isConstant_) return table_->methods().find(selector, static_cast<const void*>(object_));
  return table_->methods().find(selector, object_);
}

Ref<NSEnumerator> HostInstance::objectEnumerator() const {
  const auto& enumerate = table_->operations().enumerate;
  if (!enumerate) return nullptr;
  checkStack();
  return enumerate(object_, *this);
}

bool HostInstance::canBeShared() const {
  return table_->canBeShared() && canShareOwner(owner_);
}

Ref<NSEnumerator> enumeratorOf(const Value& value) {
  if (Ref<NSEnumerator> walk = value.ref<NSEnumerator>()) return walk;
  return value.isObject() ? value.object()->objectEnumerator() : nullptr;
}

void raiseConstant(const HostInstance& holder) {
  NSException::raise(
      NSInvalidArgumentException,
      "A property of %s cannot be read: its getter changes the object, which the host gave as a constant",
      holder.className());
}

}  // namespace tavlo
