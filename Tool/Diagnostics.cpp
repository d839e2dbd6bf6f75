#include "Tool/Diagnostics.h"

#include <rapidjson/encodings.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <optional>
#include <string>

#include "Foundation/Utf8.h"
#include "Source/KorTemplateFailure.h"
#include "Source/PrintableText.h"
#include "Tool/FileDescriptor.h"

namespace tavlo {

namespace {

// The text with U+FFFD for each byte that is no UTF-8, such as a file's name may hold.
std::string repaired(std::string_view text) {
  std::string valid;
  while (const std::optional<std::size_t> invalid = firstInvalidByte(text)) {
    valid.append(text.substr(0, *invalid)).append("\xEF\xBF\xBD");
    text.remove_prefix(*invalid + 1);
  }
  return valid.append(text);
}

// The library's own memory does not stand being out of it.
class ThrowingAllocator {
 public:
  // NOLINTBEGIN(readability-identifier-naming): what the library asks for
  static void* Malloc(std::size_t size) { return size == 0 ? nullptr : ::operator new(size); }
  static void* Realloc(void* old, std::size_t oldSize, std::size_t size) {
    void* const memory = Malloc(size);
    if (old != nullptr && memory != nullptr) std::memcpy(memory, old, std::min(oldSize, size));
    Free(old);
    return memory;
  }
  static void Free(void* memory) noexcept { ::operator delete(memory); }
  // NOLINTEND(readability-identifier-naming)
};

// One JSON object, member by member.
class ObjectWriter {
 public:
  ObjectWriter() { writer_.StartObject(); }

  void add(const char* name, std::string_view text) {
    const std::string valid = repaired(text);
    writer_.Key(name);
    writer_.String(valid.data(), static_cast<rapidjson::SizeType>(valid.size()));
  }
  void add(const char* name, std::int32_t number) {
    writer_.Key(name);
    writer_.Int(number);
  }
  void add(const char* name, const TextPlace& place) {
    writer_.Key(name);
    writer_.StartObject();
    addSize("line", place.line);
    addSize("column", place.column);
    addSize("offset", place.offset);
    addSize("length", place.length);
    writer_.EndObject();
  }
  void add(const char* name, std::uint64_t number) { addSize(name, number); }
  void add(const char* name, double number) {
    writer_.Key(name);
    writer_.Double(number);
  }
  std::string takeLine() {
    writer_.EndObject();
    return std::string(buffer_.GetString(), buffer_.GetSize()) + '\n';
  }

 private:
  void addSize(const char* name, std::size_t size) {
    writer_.Key(name);
    writer_.Uint64(size);
  }

  using UTF8 = rapidjson::UTF8<>;
  using Buffer = rapidjson::GenericStringBuffer<UTF8, ThrowingAllocator>;

  Buffer buffer_;
  rapidjson::Writer<Buffer, UTF8, UTF8, ThrowingAllocator> writer_{buffer_};
};

std::string asText(const Failure& failure) {
  std::string where = printable(failure.file);
  if (failure.place.has_value()) {
    where += ':' + std::to_string(failure.place->line) + ':' + std::to_string(failure.place->column);
  }
  return textOfFailure(where, failure.name, failure.reason, failure.excerpt);
}

std::string asJSON(const Failure& failure) {
  ObjectWriter object;
  object.add("kind", "error");
  object.add("name", failure.name);
  object.add("reason", failure.reason);
  object.add("file", failure.file);
  if (failure.line.has_value()) object.add("line", *failure.line);
  if (failure.place.has_value()) object.add("at", *failure.place);
  return object.takeLine();
}

double secondsOf(Statistics::Duration duration) {
  return std::chrono::duration<double>(duration).count();
}

std::string rowOf(const char* name, Statistics::Duration duration) {
  char text[64];
  std::snprintf(text, sizeof text, "%-12s %.6f s\n", name, secondsOf(duration));
  return text;
}

std::string rowOf(const char* name, std::uint64_t number, const char* unit = "") {
  char text[64];
  std::snprintf(text, sizeof text, "%-12s %llu%s\n", name, static_cast<unsigned long long>(number), unit);
  return text;
}

std::string asText(const Statistics& statistics) {
  return rowOf("read", statistics.read) + rowOf("compile", statistics.compile) + rowOf("render", statistics.render) +
         rowOf("steps", statistics.steps) + rowOf("output", statistics.output, " bytes") +
         rowOf("allocations", statistics.allocations) + rowOf("peak memory", statistics.peakMemory, " KiB");
}

std::string asJSON(const Statistics& statistics) {
  ObjectWriter object;
  object.add("kind", "statistics");
  object.add("read", secondsOf(statistics.read));
  object.add("compile", secondsOf(statistics.compile));
  object.add("render", secondsOf(statistics.render));
  object.add("steps", statistics.steps);
  object.add("output", statistics.output);
  object.add("allocations", statistics.allocations);
  object.add("peakMemory", statistics.peakMemory);
  return object.takeLine();
}

// Where standard error cannot be written to, nobody can be told.
void tell(std::string_view text) {
  (void)writeAll(STDERR_FILENO, text);
}

}  // namespace

void Diagnostics::writeDiagnostic(std::string_view text) const {
  if (format_ == ErrorFormat::Text) return tell(printable(text, LineBreaks::Kept) + '\n');
  ObjectWriter object;
  object.add("kind", "diagnostic");
  object.add("text", text);
  tell(object.takeLine());
}

void Diagnostics::writeFailure(const Failure& failure) const noexcept {
  try {
    tell(format_ == ErrorFormat::Text ? asText(failure) : asJSON(failure));
  } catch (const std::exception&) {
    writeOutOfMemory();
  }
}

void Diagnostics::writeOutOfMemory() const noexcept {
  tell(format_ == ErrorFormat::Text
           ? "tavlo: input: std::bad_alloc\n"
           : "{\"kind\":\"error\",\"name\":\"input\",\"reason\":\"std::bad_alloc\",\"file\":\"tavlo\"}\n");
}

void Diagnostics::writeStatistics(const Statistics& statistics) const {
  tell(format_ == ErrorFormat::Text ? asText(statistics) : asJSON(statistics));
}

}  // namespace tavlo
