#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/StringFormat.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

class NSArray;
class NSDictionary;
class NSSet;

// The text of a value under construction. An object's `describe` hands it pieces and children in order; the children
// are described afterwards from a stack of its own, so that no chain of objects is too deep for it.
class Description {
 public:
  // Raises `KorTemplateLimitException` once the text is longer than `limit` bytes.
  explicit Description(std::uint64_t limit);
  ~Description();

  // The whole text of a value; "(null)" for an absent one.
  static std::string of(const Value& value, std::uint64_t limit);

  // "<ClassName: 0x…>", the inherited description of every class, as a part of a format.
  struct Base {
    const NSObject& object;
  };
  static Base base(const NSObject& object) { return {object}; }

  // A piece of text as it stands. Raises `NSInvalidArgumentException` where it is no UTF-8.
  void part(std::string_view text);
  void part(const char* text) { part(text == nullptr ? std::string_view("(null)") : std::string_view(text)); }
  void part(const std::string& text) { part(std::string_view(text)); }
  void part(Base base);
  // The text of a value.
  void part(const Value& value);
  template <class T>
  void part(const Ref<T>& object) {
    part(Value(object));
  }
  void part(const Name& name) { name.isAbsent() ? part("(null)") : part(name.view()); }
  // The text of a list of objects, as an array's.
  template <class T>
  void part(const std::vector<Ref<T>>& items) {
    part(arrayOf(std::vector<Value>(items.begin(), items.end())));
  }

  // The format with each "%@" replaced by the next part.
  template <class... Parts>
  void format(std::string_view format, const Parts&... parts) {
    ((part(upToPlaceholder(format)), part(parts)), ...);
    part(format);
  }

  // Collections, laid out as the system lays them out: an element a line, indented by 4 spaces per level.
  void array(const NSArray& array);
  void set(const NSSet& set);
  void dictionary(const NSDictionary& dictionary);

 private:
  struct Piece;
  struct Lines;

  static Value arrayOf(std::vector<Value> items);
  static std::string_view upToPlaceholder(std::string_view& format);
  void run(const Value& value);
  void begin(Lines lines, std::string_view open);
  void writeLine(const Piece& piece);
  void write(const Value& value);
  void count(std::size_t bytes) const;
  void append(std::string_view text);
  void indent(std::int32_t level);

  std::uint64_t limit_;
  std::int32_t level_ = 0;  // of the collection that is being described
  std::string out_;
  std::vector<Piece> queued_;   // by the describe() that runs, in order
  std::vector<Piece> pending_;  // still to come, the next one last
};

}  // namespace tavlo
