#include "Source/KorTemplateData.h"

namespace tavlo {

KorTemplateData::KorTemplateData(std::initializer_list<std::pair<std::string_view, Value>> entries) {
  for (const auto& entry : entries) add(entry.first, entry.second);
}

KorTemplateData::KorTemplateData(const Ref<NSDictionary>& dictionary) {
  if (dictionary == nullptr) return;
  for (const NSDictionary::Entry& entry : dictionary->entries()) add(entry.key->view(), entry.value);
}

KorTemplateData::KorTemplateData(const std::vector<Ref<NSString>>& keys, const Value& object) {
  for (const Ref<NSString>& key : keys) {
    Value value;
    if (findValueForKey(object, *key, value)) add(key->view(), value);
  }
}

void KorTemplateData::add(const Name& name, const Value& value) {
  if (!value.isAbsent()) entries_.push_back({name, value});
}

}  // namespace tavlo
