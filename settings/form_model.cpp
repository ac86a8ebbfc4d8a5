#include "settings/form_model.h"

#include "platform/text_encoding.h"

namespace pictavo::settings {

FormModel::FormModel(std::string name, std::string caption) {
  Add(std::move(name), ComponentKind::kForm, std::move(caption));
}

Component& FormModel::Add(std::string name, ComponentKind kind, std::string caption) {
  Component c;
  c.name = std::move(name);
  c.kind = kind;
  c.caption = std::move(caption);
  components_.push_back(std::move(c));
  return components_.back();
}

Component* FormModel::Find(std::string_view name) {
  for (Component& c : components_)
    if (platform::EqualsNoCase(c.name, name)) return &c;
  return nullptr;
}

const Component* FormModel::Find(std::string_view name) const {
  return const_cast<FormModel*>(this)->Find(name);
}

}  // namespace pictavo::settings
