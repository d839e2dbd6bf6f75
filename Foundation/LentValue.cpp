#include "Foundation/LentValue.h"

#include "Foundation/Utf8.h"

namespace tavlo {

void LentValue::setText(std::string_view text) {
  requireValidUTF8(text);
  text_ = text;
  isText_ = true;
}

}  // namespace tavlo
