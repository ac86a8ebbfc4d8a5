#include "engine/tools/trouble.h"

namespace pictavo::tools {
namespace {

thread_local TroubleRecorder* t_current = nullptr;

}  // namespace

TroubleRecorder::TroubleRecorder() : previous_(t_current) {
  t_current = this;
}

TroubleRecorder::~TroubleRecorder() {
  t_current = previous_;
  if (previous_ == nullptr) return;
  for (size_t k = 0; k < first_.size(); ++k)
    if (!first_[k].empty()) previous_->Note(static_cast<Trouble>(k), first_[k]);
}

void TroubleRecorder::Note(Trouble kind, const std::string& text) {
  std::string& slot = first_[static_cast<size_t>(kind)];
  if (slot.empty()) slot = text;
}

std::string TroubleRecorder::Reason() const {
  for (size_t k = first_.size(); k-- > 0;) {
    if (first_[k].empty()) continue;
    std::string reason = first_[k];
    if (static_cast<Trouble>(k) == Trouble::kResultRejected) {
      const std::string& said = !first_[static_cast<size_t>(Trouble::kToolFailed)].empty()
                                    ? first_[static_cast<size_t>(Trouble::kToolFailed)]
                                    : first_[static_cast<size_t>(Trouble::kToolSaid)];
      if (!said.empty()) reason += " (" + said + ")";
    }
    return reason;
  }
  return {};
}

void NoteTrouble(Trouble kind, const std::string& text) {
  if (t_current != nullptr && !text.empty()) t_current->Note(kind, text);
}

}  // namespace pictavo::tools
