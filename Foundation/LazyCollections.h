#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/HostClass.h"
#include "Foundation/KeptWith.h"
#include "Foundation/LazyContainers.h"
#include "Foundation/LazySequence.h"
#include "Foundation/NSException.h"
#include "Foundation/StandardContainers.h"
#include "Foundation/ValueConversion.h"
#include "Foundation/WorkMeter.h"

// Collections of the host's that templates read where they are: nothing is copied, and an element becomes a value when
// it is asked for. Elements are whatever a property may answer; see HostClass::property.

namespace tavlo {

// A list of the elements of a container that is read by index: std::vector, std::deque, std::array, std::span. The
// container that is named stays the host's, which may change it while a template reads it: the list's length is looked
// at before every element. Objects of described classes and containers inside it are referred to where they lie: one
// that a template still holds, as a loop holds its element, may not move. A container that is moved in, or given with
// its owner, is owned by the list.
template <class C>
requires ListLike<std::remove_reference_t<C>> Value lazyList(C&& container) {
  constexpr bool kHasValues = HostResult<ListElement<std::remove_reference_t<C>>>;
  static_assert(kHasValues, "lazyList: the elements cannot become values; describe their class by describeHostClass()");
  if constexpr (kHasValues) {
    const std::shared_ptr<const void> owner = KeptWith::owner();
    return lazyListOver(std::forward<C>(container), HostContext(owner, nullptr, KeptWith::canBeShared()));
  }
  return {};
}
template <ListLike C>
Value lazyList(const std::shared_ptr<C>& container) {
  const std::shared_ptr<const void> owner = container;
  return container == nullptr ? Value() : lazyListOver(*container, HostContext(owner));
}

// A dictionary of the entries of a container whose keys are texts: std::map, std::unordered_map. It may change while a
// template reads it: a loop over a sorted one finds what is there at each step, one over a hashed one what was there
// at its start and still is. What a template holds of it must stay where it lies. Owned as a list.
template <class C>
requires DictionaryLike<std::remove_reference_t<C>> Value lazyDictionary(C&& container) {
  constexpr bool kHasValues = HostResult<DictionaryElement<std::remove_reference_t<C>>>;
  static_assert(kHasValues, "lazyDictionary: the values cannot become values of a template; describe their class");
  if constexpr (kHasValues) {
    const std::shared_ptr<const void> owner = KeptWith::owner();
    return lazyDictionaryOver(std::forward<C>(container), HostContext(owner, nullptr, KeptWith::canBeShared()));
  }
  return {};
}
template <DictionaryLike C>
Value lazyDictionary(const std::shared_ptr<C>& container) {
  const std::shared_ptr<const void> owner = container;
  return container == nullptr ? Value() : lazyDictionaryOver(*container, HostContext(owner));
}

// The elements that a function answers by their index.
template <class Count, class ElementAt>
class LazyListByFunctions final : public LazyList {
 public:
  LazyListByFunctions(Count count, ElementAt elementAt) : count_(std::move(count)), elementAt_(std::move(elementAt)) {}

  std::size_t count() const override {
    lookBeforeHost();
    return static_cast<std::size_t>(std::invoke(count_));
  }
  Value elementAt(std::size_t index, ReusableInstances& reused) const override {
    if (index >= count()) return {};
    const std::shared_ptr<const void> nobody;
    lookBeforeHost();
    return elementValue(std::invoke(elementAt_, index), HostContext(nobody, &reused));
  }

 private:
  Count count_;
  ElementAt elementAt_;
};

// A list of as many elements as `count` answers, each answered by `elementAt` for its index from 0. Objects that it
// answers by reference stay the host's. Here and below a function that is a null pointer raises
// `NSInternalInconsistencyException`.
template <class Count, class ElementAt>
requires std::is_invocable_r_v<std::size_t, const Count&> && std::invocable<const ElementAt&, std::size_t> Value
lazyList(Count count, ElementAt elementAt) {
  constexpr bool kHasValues = HostResult<std::invoke_result_t<const ElementAt&, std::size_t>>;
  static_assert(kHasValues, "lazyList: the elements cannot become values; describe their class by describeHostClass()");
  if constexpr (kHasValues) {
    requirePresent(count, "count != nil");
    requirePresent(elementAt, "elementAt != nil");
    return makeRef<LazyListByFunctions<Count, ElementAt>>(std::move(count), std::move(elementAt));
  }
  return {};
}

// The entries that two functions answer.
template <class ValueForKey, class Keys>
class LazyDictionaryByFunctions final : public LazyDictionary {
 public:
  LazyDictionaryByFunctions(ValueForKey valueForKey, Keys keys)
      : valueForKey_(std::move(valueForKey)), keys_(std::move(keys)) {}

  std::size_t count() const override { return heldKeys().size(); }
  Value objectForKey(std::string_view key) const override {
    ReusableInstances reused;
    return valueFor(key, reused);
  }
  std::unique_ptr<Walk> walk() const override { return std::make_unique<KeyWalk>(*this); }

 private:
  class KeyWalk final : public Walk {
   public:
    explicit KeyWalk(const LazyDictionaryByFunctions& dictionary)
        : dictionary_(dictionary), keys_(dictionary.heldKeys()) {}

    bool next(std::string_view& key, Value& value, ReusableInstances& reused) override {
      while (next_ < keys_.size()) {
        key = keys_[next_++];
        requireValidUTF8(key);
        value = dictionary_.valueFor(key, reused);
        if (!value.isAbsent()) return true;
      }
      return false;
    }

   private:
    const LazyDictionaryByFunctions& dictionary_;  // held by who walks
    std::vector<std::string> keys_;
    std::size_t next_ = 0;
  };

  std::vector<std::string> heldKeys() const {
    std::vector<std::string> keys;
    ElementCounter work;
    lookBeforeHost();
    for (auto&& key : std::invoke(keys_)) {
      lookBeforeElement<std::invoke_result_t<const Keys&>, decltype(key)>();
      work.next();
      countWorkOnText(keys.emplace_back(textOfKey(key)).size());
    }
    return keys;
  }
  Value valueFor(std::string_view key, ReusableInstances& reused) const {
    using Result = std::invoke_result_t<const ValueForKey&, std::string_view>;
    const std::shared_ptr<const void> nobody;
    const HostContext context(nobody, &reused);
    lookBeforeHost();
    if constexpr (kWrapperKind<std::remove_cvref_t<Result>> == HostResultKind::Optional) {
      auto&& result = std::invoke(valueForKey_, key);
      return result.has_value() ? elementValue(*std::forward<Result>(result), context) : Value();
    } else {
      return Value::adopt(referTo(std::invoke(valueForKey_, key), context));
    }
  }

  ValueForKey valueForKey_;
  Keys keys_;
};

// A dictionary whose values `valueForKey` answers, an empty optional or an absent value for a key that is not there,
// and whose keys are the texts in what `keys` answers.
template <class ValueForKey, class Keys>
requires std::invocable<const ValueForKey&, std::string_view> && std::invocable<const Keys&> Value
lazyDictionary(ValueForKey valueForKey, Keys keys) {
  constexpr bool kHasValues = HostResult<std::invoke_result_t<const ValueForKey&, std::string_view>>;
  static_assert(kHasValues, "lazyDictionary: the values cannot become values of a template; describe their class");
  constexpr bool kHasKeys = TextLike<std::ranges::range_value_t<std::invoke_result_t<const Keys&>>>;
  static_assert(kHasKeys, "lazyDictionary: the keys must be texts");
  if constexpr (kHasValues && kHasKeys) {
    requirePresent(valueForKey, "valueForKey != nil");
    requirePresent(keys, "keys != nil");
    return makeRef<LazyDictionaryByFunctions<ValueForKey, Keys>>(std::move(valueForKey), std::move(keys));
  }
  return {};
}

// What answers the next element, or an empty optional after the last.
template <class Next>
concept Generator = std::invocable<Next&> && kWrapperKind<std::remove_cvref_t<std::invoke_result_t<Next&>>>
== HostResultKind::Optional;

// The elements that a generator makes; none any more once it has answered that there are none.
template <Generator Next>
class GeneratedElements final : public NSEnumerator {
 public:
  explicit GeneratedElements(Next next) : next_(std::move(next)) {}

  Value nextObject() override {
    if (isOver_) return {};
    lookBeforeHost();
    const Ref<NSEnumerator> itself = Ref<NSEnumerator>::retaining(this);  // the generator may let go of it
    auto result = std::invoke(next_);
    isOver_ = !result.has_value();
    const std::shared_ptr<const void> nobody;
    return isOver_ ? Value() : elementValue(*std::move(result), HostContext(nobody));
  }

 private:
  Next next_;
  bool isOver_ = false;
};

// The elements of a range, from its beginning.
template <class Range>
class RangeElements final : public NSEnumerator {
 public:
  explicit RangeElements(LentContainer<Range> range) : range_(std::move(range)) {}

  Value nextObject() override {
    lookBeforeHost();
    if (!at_.has_value()) {
      at_.emplace(std::ranges::begin(range_.container));
    } else if (*at_ != std::ranges::end(range_.container)) {
      ++*at_;
    }
    if (*at_ == std::ranges::end(range_.container)) return {};
    const HostContext context(range_.owner, &reused_, range_.canBeShared);
    if constexpr (mayHoldItsElement()) {
      using Copy = std::ranges::range_value_t<Range>;
      constexpr bool kCanCopy =
          std::constructible_from<Copy, std::ranges::range_reference_t<Range>> && HostResult<Copy>;
      static_assert(kCanCopy,
                    "lazySequence: what can be read only once hands out copies of its elements, and these cannot be "
                    "copied; answer pointers to them");
      if constexpr (kCanCopy) return elementValue(Copy(**at_), context);
    } else {
      return elementValue(**at_, context);
    }
  }

 private:
  // Whether the element may lie in the iterator, as that of `std::istream_iterator` does, where the next one replaces
  // it: so may it in any that goes through its range only once. Such an element is copied.
  static constexpr bool mayHoldItsElement() {
    using Element = std::ranges::range_reference_t<Range>;
    return !std::ranges::forward_range<Range> && std::is_lvalue_reference_v<Element> && !kIsPlainData<Element> &&
           !std::derived_from<std::ranges::range_value_t<Range>, NSObject>;
  }

  LentContainer<Range> range_;
  std::optional<std::ranges::iterator_t<Range>> at_;  // what was answered last
  ReusableInstances reused_;
};

// Elements that can be read once.
class SingleSequence final : public LazySequence {
 public:
  explicit SingleSequence(Ref<NSEnumerator> elements);
  Ref<NSEnumerator> objectEnumerator() const override;

 private:
  Ref<NSEnumerator> elements_;
};

// Elements that `begin` begins anew for every reader.
template <class Begin>
class RepeatedSequence final : public LazySequence {
 public:
  explicit RepeatedSequence(Begin begin) : begin_(std::move(begin)) {}
  Ref<NSEnumerator> objectEnumerator() const override { return begin_(); }

 private:
  Begin begin_;
};

// A sequence of what `next` answers, until that is an empty optional; read once, by whoever comes first.
template <Generator Next>
Value lazySequence(Next next) {
  constexpr bool kHasValues = HostResult<decltype(*std::declval<Next&>()())>;
  static_assert(kHasValues, "lazySequence: the elements cannot become values; describe their class");
  requirePresent(next, "next != nil");
  if constexpr (kHasValues) return makeRef<SingleSequence>(makeRef<GeneratedElements<Next>>(std::move(next)));
  return {};
}
// A sequence that begins anew for every loop: `make` answers such a function.
template <class Make>
requires std::invocable<const Make&> && Generator<std::invoke_result_t<const Make&>> Value lazySequence(Make make) {
  requirePresent(make, "make != nil");
  const auto begin = [make = std::move(make)]() -> Ref<NSEnumerator> {
    using Next = std::remove_cvref_t<std::invoke_result_t<const Make&>>;
    lookBeforeHost();
    return makeRef<GeneratedElements<Next>>(std::invoke(make));
  };
  return makeRef<RepeatedSequence<std::remove_const_t<decltype(begin)>>>(begin);
}
// A sequence of the elements of a range, which is named and stays the host's, or is moved in; read once where the range
// can be. The range must not change while it is read.
template <class Range>
requires std::ranges::input_range<std::remove_reference_t<Range>> Value lazySequence(Range&& range) {
  using Element = std::ranges::range_reference_t<std::remove_reference_t<Range>>;
  static_assert(HostResult<Element>, "lazySequence: the elements cannot become values; describe their class");
  if constexpr (HostResult<Element>) {
    const std::shared_ptr<const void> owner = KeptWith::owner();
    auto lent = lendContainer(std::forward<Range>(range), HostContext(owner, nullptr, KeptWith::canBeShared()));
    using Held = std::remove_reference_t<decltype(lent.container)>;
    if constexpr (std::ranges::forward_range<Held>) {
      const auto begin = [lent]() -> Ref<NSEnumerator> { return makeRef<RangeElements<Held>>(lent); };
      return makeRef<RepeatedSequence<std::remove_const_t<decltype(begin)>>>(begin);
    } else {
      return makeRef<SingleSequence>(makeRef<RangeElements<Held>>(std::move(lent)));
    }
  }
  return {};
}

// A container that stays the host's is named by std::ref or std::cref where a value is asked for.
template <ListLike C>
requires(!Described<C>) struct ValueConversion<std::reference_wrapper<C>> {
  static Value toValue(const std::reference_wrapper<C>& container) { return lazyList(container.get()); }
};
template <DictionaryLike C>
requires(!Described<C>) struct ValueConversion<std::reference_wrapper<C>> {
  static Value toValue(const std::reference_wrapper<C>& container) { return lazyDictionary(container.get()); }
};
template <std::ranges::input_range C>
requires(!ListLike<C> && !DictionaryLike<C> && !AnyText<std::remove_const_t<C>> &&
         !Described<C>) struct ValueConversion<std::reference_wrapper<C>> {
  static Value toValue(const std::reference_wrapper<C>& range) { return lazySequence(range.get()); }
};
// A text is copied, as texts are.
template <class C>
requires(AnyText<std::remove_const_t<C>> && !TextLike<C> &&
         !Described<C>) struct ValueConversion<std::reference_wrapper<C>> {
  static Value toValue(const std::reference_wrapper<C>& text) { return valueOf(text.get()); }
};

}  // namespace tavlo
