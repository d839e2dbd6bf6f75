#pragma once

#include <initializer_list>
#include <ranges>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/HostClass.h"
#include "Foundation/HostObject.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"

namespace tavlo {

// A container of pairs of a text and something that becomes a value: `std::map`, `std::unordered_map`, a vector of
// pairs.
template <class T>
concept NamedValues = std::ranges::input_range<const T> && requires(const std::ranges::range_value_t<const T>& entry) {
  std::string_view(entry.first);
  requires ConvertibleToValue<decltype(entry.second)>;
};

// What a template is rendered with: names and their values, made from whatever has both. A name that comes twice has
// the later value; an absent value is left out, and an empty `std::optional` is null.
class KorTemplateData {
 public:
  struct Entry {
    Name name;
    Value value;
  };

  KorTemplateData() = default;
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  // {{"name", value}, ...}
  KorTemplateData(std::initializer_list<std::pair<std::string_view, Value>> entries);
  // The entries of a dictionary; none for an absent one.
  KorTemplateData(const Ref<NSDictionary>& dictionary);
  KorTemplateData(const Ref<NSMutableDictionary>& dictionary) : KorTemplateData(Ref<NSDictionary>(dictionary)) {}
  template <NamedValues T>
  KorTemplateData(const T& entries) {
    for (const auto& entry : entries) {
      requireParameter(!isNullText(entry.first), "name != nil");
      add(std::string_view(entry.first), valueOf(entry.second));
    }
  }
  // The properties of an object of the host's that has described its class, each read once. The object must outlive
  // the values that refer to it. Raises what a getter raises, and `NSInvalidArgumentException` for a getter that
  // changes the object where that is a constant.
  template <class T>
  requires(Described<std::remove_const_t<T>> && !NamedValues<std::remove_const_t<T>>) KorTemplateData(T& object)
      : KorTemplateData(hostClass<std::remove_const_t<T>>().keys(), hostReference(object)) {}
  // NOLINTEND(google-explicit-constructor)

  void add(const Name& name, const Value& value);

  const std::vector<Entry>& entries() const noexcept { return entries_; }

 private:
  KorTemplateData(const std::vector<Ref<NSString>>& keys, const Value& object);

  std::vector<Entry> entries_;
};

}  // namespace tavlo
