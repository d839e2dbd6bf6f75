#include "Tool/Diagnostics.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

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
  std::string takeLine() {
    writer_.EndObject();
    return std::string(buffer_.GetString(), buffer_.GetSize()) + '\n';
  }

 private:
  void addSize(const char* name, std::size_t size) {
    writer_.Key(name);
    writer_.Uint64(size);
  }

  rapidjson::StringBuffer buffer_;
  rapidjson::Writer<rapidjson::StringBuffer> writer_{buffer_};
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

// Where standard error cannot be written to, nobody can be told.
void tell(const std::string& text) {
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

void Diagnostics::writeFailure(const Failure& failure) const {
  tell(format_ == ErrorFormat::Text ? asText(failure) : asJSON(failure));
}

}  // namespace tavlo
