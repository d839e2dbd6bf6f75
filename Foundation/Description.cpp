#include "Foundation/Description.h"

#include <algorithm>
#include <utility>

#include "Foundation/HostCalls.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/Utf8.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// A collection under way: its elements in the order in which they are shown.
struct Description::Lines {
  struct Line {
    Value key;  // absent but for a dictionary's
    Value value;
  };
  std::vector<Line> lines;
  std::size_t next = 0;
  std::string_view separator;  // behind every line but the last
  std::string_view lastEnd;    // behind the last
  std::string_view close;
  std::int32_t level;  // of the collection itself

  // The lines of the elements. To gather them is work of its own: there may be millions before the first is written.
  template <class Elements, class LineOf>
  void gather(const Elements& elements, const LineOf& lineOf) {
    lines.reserve(elements.size());
    ElementCounter work;
    for (const auto& element : elements) {
      work.next();
      lines.push_back(lineOf(element));
    }
  }
};

// What is still to be written: a text, a value, or the rest of a collection.
struct Description::Piece {
  std::string text;
  Value value;
  std::shared_ptr<Lines> lines;
};

namespace {

constexpr std::size_t kIndentation = 4;

bool isBareCharacter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') || (letter >= '0' && letter <= '9') ||
         letter == '_' || letter == '$' || letter == '/' || letter == ':' || letter == '.';
}

std::string_view escapeOf(char letter) {
  switch (letter) {
    case '"':
      return "\\\"";
    case '\\':
      return "\\\\";
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    default:
      return {};
  }
}

// A string inside a collection: bare where nothing in it could be mistaken, in quotes otherwise.
std::string quoted(std::string_view text) {
  if (!text.empty() && std::ranges::all_of(text, isBareCharacter)) return std::string(text);
  std::string result = "\"";
  for (const char letter : text) {
    const std::string_view escape = escapeOf(letter);
    escape.empty() ? result += letter : result += escape;
  }
  result += '"';
  return result;
}

}  // namespace

Description::Description(std::uint64_t limit) : limit_(limit) {}

Description::~Description() = default;

std::string Description::of(const Value& value, std::uint64_t limit) {
  Description description(limit);
  description.run(value);
  return std::move(description.out_);
}

void Description::part(std::string_view text) {
  if (text.empty()) return;
  requireValidUTF8(text);  // a host's class may write anything
  if (queued_.empty()) {
    append(text);
  } else {
    queued_.push_back({std::string(text), {}, {}});
  }
}

void Description::part(Base base) {
  char address[2 * sizeof(void*) + 1];
  char* end = address;
  auto rest = reinterpret_cast<std::uintptr_t>(&base.object);
  do {
    *end++ = "0123456789abcdef"[rest % 16];
    rest /= 16;
  } while (rest != 0);
  std::reverse(address, end);
  part("<" + std::string(base.object.className()) + ": 0x" + std::string(address, end) + ">");
}

void Description::part(const Value& value) {
  WorkCounter().step();
  queued_.push_back({{}, value, {}});
}

Value Description::arrayOf(std::vector<Value> items) {
  return makeRef<NSArray>(std::move(items));
}

std::string_view Description::upToPlaceholder(std::string_view& format) {
  const std::size_t at = std::min(format.find("%@"), format.size());
  const std::string_view before = format.substr(0, at);
  format.remove_prefix(std::min(at + 2, format.size()));
  return before;
}

void Description::array(const NSArray& array) {
  Lines lines{.lines = {}, .separator = ",\n", .lastEnd = "\n", .close = ")", .level = level_};
  lines.gather(array.elements(), [](const Value& element) { return Lines::Line{{}, element}; });
  begin(std::move(lines), "(\n");
}

void Description::set(const NSSet& set) {
  Lines lines{.lines = {}, .separator = ",\n", .lastEnd = "\n", .close = ")}", .level = level_};
  lines.gather(set.members(), [](const Value& member) { return Lines::Line{{}, member}; });
  begin(std::move(lines), "{(\n");
}

void Description::dictionary(const NSDictionary& dictionary) {
  Lines lines{.lines = {}, .separator = ";\n", .lastEnd = ";\n", .close = "}", .level = level_};
  lines.gather(dictionary.entries(), [](const NSDictionary::Entry& entry) {
    return Lines::Line{entry.key, entry.value};
  });
  std::ranges::sort(lines.lines, {}, [](const Lines::Line& line) {
    WorkCounter().step();
    return line.key.string()->view();
  });
  begin(std::move(lines), "{\n");
}

void Description::begin(Lines lines, std::string_view open) {
  requireValueDepth(lines.level + 1);
  part(open);
  queued_.push_back({{}, {}, std::make_shared<Lines>(std::move(lines))});
}

void Description::run(const Value& value) {
  pending_.push_back({{}, value, {}});
  while (!pending_.empty()) {
    const Piece piece = std::move(pending_.back());
    pending_.pop_back();
    if (piece.lines != nullptr) {
      writeLine(piece);
    } else if (!piece.value.isAbsent() || piece.text.empty()) {
      level_ = 0;
      write(piece.value);
    } else {
      append(piece.text);
    }
    std::move(queued_.rbegin(), queued_.rend(), std::back_inserter(pending_));
    queued_.clear();
  }
}

// Writes the next line of a collection, or its end, and queues what comes behind.
void Description::writeLine(const Piece& piece) {
  WorkCounter().step();
  Lines& lines = *piece.lines;
  if (lines.next == lines.lines.size()) {
    indent(lines.level);
    return append(lines.close);
  }
  const Lines::Line line = lines.lines[lines.next++];
  indent(lines.level + 1);
  if (!line.key.isAbsent()) append(quoted(line.key.string()->view()) + " = ");
  level_ = lines.level + 1;
  if (const NSString* string = line.value.string()) {
    append(quoted(string->view()));
  } else {
    write(line.value);
  }
  part(lines.next == lines.lines.size() ? lines.lastEnd : lines.separator);
  queued_.push_back(piece);
}

void Description::write(const Value& value) {
  if (value.isNumber()) {
    char text[kNumberTextSize];
    append({text, writeNumber(text, value.peek())});
  } else if (value.isObject()) {
    lookBeforeCalling(*value.object());
    value.object()->describe(*this);
  } else {
    append(value.isNull() ? "<null>" : "(null)");
  }
}

void Description::count(std::size_t bytes) const {
  if (out_.size() + bytes > limit_) raiseLimit(KorTemplateLimit::StringLength, limit_);
  WorkCounter().countBytes(bytes);
}

void Description::append(std::string_view text) {
  count(text.size());
  out_.append(text);
}

void Description::indent(std::int32_t level) {
  const std::size_t spaces = static_cast<std::size_t>(level) * kIndentation;
  count(spaces);
  out_.append(spaces, ' ');
}

}  // namespace tavlo
