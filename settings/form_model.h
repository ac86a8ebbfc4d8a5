// A toolkit-free model of a window: named components with the texts that language files
// translate. The Qt window and the console view render from it; tests need no display.
// Not thread-safe: a form belongs to the thread that shows it.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace pictavo::settings {

enum class ComponentKind {
  kForm,
  kLabel,
  kButton,
  kCheckBox,
  kEdit,
  kComboBox,
  kListView,
  kMenuItem,
  kAction,
  kTabSheet,
  kGroupBox,
  kSpeedButton,
  kRadioButton,
  kPanel,
  kToolButton,
  kShape,
  kImage,
  kOpenDialog,
  kSaveDialog,
  kMemo,
  kProgressBar,
  kTimer,
};

struct Component {
  std::string name;
  ComponentKind kind = ComponentKind::kLabel;
  std::string caption;  // control text, item caption, or the form's title
  std::string hint;
  std::string text;                  // edit boxes
  std::string title;                 // open and save dialogs
  std::vector<std::string> items;    // combo boxes
  std::vector<std::string> columns;  // list views: column captions, in order
};

class FormModel {
 public:
  // The form itself is the first component, of kind kForm.
  FormModel(std::string name, std::string caption);

  // Adds a component; references stay valid while the form lives.
  Component& Add(std::string name, ComponentKind kind, std::string caption = {});

  // Looks a component up by name without regard to case (the form included); null if none.
  Component* Find(std::string_view name);
  const Component* Find(std::string_view name) const;

  Component& form() { return components_.front(); }
  const Component& form() const { return components_.front(); }
  const std::deque<Component>& components() const { return components_; }

 private:
  std::deque<Component> components_;
};

}  // namespace pictavo::settings
