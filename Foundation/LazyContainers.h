#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/HostResult.h"
#include "Foundation/LazyDictionary.h"
#include "Foundation/LazyList.h"
#include "Foundation/StandardContainers.h"
#include "Foundation/Utf8.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversionTrait.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// The value of an element, which a collection never has absent.
template <class R>
Value elementValue(R&& element, const HostContext& context) {
  Value value = Value::adopt(referTo(std::forward<R>(element), context));
  return value.isAbsent() ? Value::null() : value;
}

// Makes sure that the elements' class is described, so that reading an element does not have to.
template <class R>
void describeElements() {
  if constexpr (hostResultKind<R>() == HostResultKind::Object) {
    (void)hostClassTable<std::remove_cvref_t<R>>();
  }
}

// Whether threads may read such elements at once, as long as nobody changes them.
template <class R>
bool canShareElements() {
  if constexpr (hostResultKind<R>() == HostResultKind::Object) {
    return hostClassTable<std::remove_cvref_t<R>>().canBeShared();
  } else {
    return kIsPlainData<R>;
  }
}

// Whether nothing of a host's runs where such an element, or data member, becomes a value.
template <class R>
consteval bool becomesValueQuietly() {
  using Plain = std::remove_cvref_t<R>;
  if constexpr (kIsPlainData<R> || std::same_as<Plain, Value>) return true;
  if constexpr (Described<Plain>) return std::is_lvalue_reference_v<R>;
  return false;
}

// Before the element is read that the container answers.
template <class C, class R>
void lookBeforeValue() {
  if constexpr (becomesValueQuietly<R>()) {
    lookBeforeElement<C>();
  } else {
    lookBeforeHost();
  }
}

// Keeps a container for as long as it is read.
template <class C>
struct LentContainer {
  C& container;
  std::shared_ptr<const void> owner;  // empty where the host keeps the container
  bool canBeShared;                   // as far as the container is a part of something else
};

// A view is copied, like a temporary, since it may itself be one. What refers to nothing else needs nobody else.
template <class C>
auto lendContainer(C&& container, const HostContext& context) {
  using Plain = std::remove_cvref_t<C>;
  constexpr bool kIsItsOwn =
      !std::is_lvalue_reference_v<C> && (kIsStandardList<Plain> || kIsStandardMap<Plain>)&&!kMayReferToValues<Plain>;
  const bool canBeShared = kIsItsOwn || context.canBeShared();
  if constexpr (std::is_lvalue_reference_v<C> && !std::ranges::view<std::remove_cvref_t<C>>) {
    return LentContainer<std::remove_reference_t<C>>{container, context.owner(), canBeShared};
  } else {
    auto kept = std::make_shared<Plain>(std::forward<C>(container));
    Plain& held = *kept;
    std::shared_ptr<const void> owner = std::move(kept);
    if constexpr (!kIsItsOwn) owner = HostInstance::ownerOfBoth(std::move(owner), context.owner());
    return LentContainer<Plain>{held, std::move(owner), canBeShared};
  }
}

// The elements of a container that is read by index.
template <class C>
class LazyListOver final : public LazyList {
 public:
  explicit LazyListOver(LentContainer<C> container)
      : container_(container.container), owner_(std::move(container.owner)), canBeShared_(container.canBeShared) {
    describeElements<ListElement<C>>();
  }

  std::size_t count() const override {
    lookBeforeElement<C>();
    return container_.size();
  }
  Value elementAt(std::size_t index, ReusableInstances& reused) const override {
    lookBeforeElement<C>();
    if (index >= container_.size()) return {};
    lookBeforeValue<C, ListElement<C>>();
    return elementValue(static_cast<ListElement<C>>(container_[index]), HostContext(owner_, &reused, canBeShared_));
  }
  bool isQuiet() const noexcept override {
    using Element = ListElement<C>;
    constexpr bool kIsReference =
        hostResultKind<Element>() == HostResultKind::Object && std::is_lvalue_reference_v<Element>;
    return kIsStandardList<std::remove_const_t<C>> && (kIsReference || kIsPlainData<Element>);
  }
  bool canBeShared() const override {
    return canBeShared_ && HostInstance::canShareOwner(owner_) && canShareElements<ListElement<C>>();
  }

 private:
  C& container_;
  std::shared_ptr<const void> owner_;
  bool canBeShared_;
};

// A walk keeps the text of a key: the container's may be a view of one, which is gone with the entry. This is the key
// as the container wants it.
template <class C>
decltype(auto) wantedKey(const std::string& kept) {
  if constexpr (std::same_as<typename C::key_type, std::string>) {
    return (kept);
  } else {
    return typename C::key_type(std::string_view(kept));
  }
}

// Walks the entries in the order of their keys, asking the container for the next key at every step, so that it may
// change.
template <class C>
class OrderedWalk final : public LazyDictionary::Walk {
 public:
  OrderedWalk(C& container, const std::shared_ptr<const void>& owner, bool canBeShared)
      : container_(container), owner_(owner), canBeShared_(canBeShared) {}

  bool next(std::string_view& key, Value& value, ReusableInstances& reused) override {
    lookBeforeValue<C, DictionaryElement<C>>();
    const auto found = last_.has_value() ? container_.upper_bound(wantedKey<C>(*last_)) : container_.begin();
    if (found == container_.end()) return false;
    last_.emplace(textOfKey((*found).first));
    countWorkOnText(last_->size());
    key = std::string_view(*last_);
    requireValidUTF8(key);
    value =
        elementValue(static_cast<DictionaryElement<C>>((*found).second), HostContext(owner_, &reused, canBeShared_));
    return true;
  }

 private:
  C& container_;
  std::shared_ptr<const void> owner_;
  bool canBeShared_;
  std::optional<std::string> last_;
};

// Walks the entries that were there at the start, and still are when their turn comes.
template <class C>
class HashedWalk final : public LazyDictionary::Walk {
 public:
  HashedWalk(C& container, const std::shared_ptr<const void>& owner, bool canBeShared)
      : container_(container), owner_(owner), canBeShared_(canBeShared) {
    lookBeforeElement<C>();
    keys_.reserve(container.size());
    ElementCounter work;
    for (const auto& entry : container) {
      lookBeforeElement<C>();
      work.next();
      countWorkOnText(keys_.emplace_back(textOfKey(entry.first)).size());
    }
  }

  bool next(std::string_view& key, Value& value, ReusableInstances& reused) override {
    while (next_ < keys_.size()) {
      lookBeforeValue<C, DictionaryElement<C>>();
      const auto& wanted = keys_[next_++];
      const auto found = container_.find(wantedKey<C>(wanted));
      if (found == container_.end()) continue;
      key = std::string_view(wanted);
      requireValidUTF8(key);
      value =
          elementValue(static_cast<DictionaryElement<C>>((*found).second), HostContext(owner_, &reused, canBeShared_));
      return true;
    }
    return false;
  }

 private:
  C& container_;
  std::shared_ptr<const void> owner_;
  bool canBeShared_;
  std::vector<std::string> keys_;
  std::size_t next_ = 0;
};

// The entries of a container whose keys are texts.
template <class C>
class LazyDictionaryOver final : public LazyDictionary {
 public:
  explicit LazyDictionaryOver(LentContainer<C> container)
      : container_(container.container), owner_(std::move(container.owner)), canBeShared_(container.canBeShared) {
    describeElements<DictionaryElement<C>>();
  }

  std::size_t count() const override {
    lookBeforeElement<C>();
    return container_.size();
  }
  Value objectForKey(std::string_view key) const override {
    lookBeforeValue<C, DictionaryElement<C>>();
    const auto found = find(key);
    return found == container_.end() ? Value()
                                     : elementValue(static_cast<DictionaryElement<C>>((*found).second),
                                                    HostContext(owner_, nullptr, canBeShared_));
  }
  std::unique_ptr<Walk> walk() const override {
    if constexpr (requires(const typename C::key_type& key) { container_.upper_bound(key); }) {
      return std::make_unique<OrderedWalk<C>>(container_, owner_, canBeShared_);
    } else {
      return std::make_unique<HashedWalk<C>>(container_, owner_, canBeShared_);
    }
  }
  bool canBeShared() const override {
    return canBeShared_ && HostInstance::canShareOwner(owner_) && canShareElements<DictionaryElement<C>>();
  }

 private:
  // A hashed container goes through the key twice, an ordered one for each of its levels.
  auto find(std::string_view key) const {
    constexpr bool kIsOrdered = requires(C & container, const typename C::key_type& known) {
      container.upper_bound(known);
    };
    lookBeforeElement<C>();
    const auto times = kIsOrdered ? static_cast<std::size_t>(std::bit_width(std::size_t{container_.size()})) : 2;
    countWorkOnText(key.size() * times);
    lookBeforeElement<C>();
    if constexpr (requires { container_.find(key); }) {
      return container_.find(key);
    } else {
      return container_.find(typename C::key_type(key));
    }
  }

  C& container_;
  std::shared_ptr<const void> owner_;
  bool canBeShared_;
};

template <class C>
Value lazyListOver(C&& container, const HostContext& context) {
  auto lent = lendContainer(std::forward<C>(container), context);
  return makeRef<LazyListOver<std::remove_reference_t<decltype(lent.container)>>>(std::move(lent));
}

template <class C>
Value lazyDictionaryOver(C&& container, const HostContext& context) {
  auto lent = lendContainer(std::forward<C>(container), context);
  return makeRef<LazyDictionaryOver<std::remove_reference_t<decltype(lent.container)>>>(std::move(lent));
}

}  // namespace tavlo
