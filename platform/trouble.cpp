#include "platform/trouble.h"

namespace pictavo::platform {
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

std::string TroubleRecorder::Reason(const std::string& plain) const {
  const auto first = [this](Trouble kind) -> const std::string& {
    return first_[static_cast<size_t>(kind)];
  };
  for (size_t k = first_.size(); k-- > 0;) {
    const auto kind = static_cast<Trouble>(k);
    if (first_[k].empty() || kind == Trouble::kToolSaid) continue;
    // A fallback route without a program tells less than what an earlier route's tool said.
    if (kind == Trouble::kUnavailable && Has(Trouble::kToolSaid)) break;
    std::string reason = first_[k];
    if (kind == Trouble::kResultRejected) {
      const std::string& said =
          Has(Trouble::kToolFailed) ? first(Trouble::kToolFailed) : first(Trouble::kToolSaid);
      if (!said.empty()) reason += " (" + said + ")";
    }
    return reason;
  }
  const std::string& said = first(Trouble::kToolSaid);
  if (plain.empty()) return said;
  return said.empty() ? plain : plain + " (" + said + ")";
}

void NoteTrouble(Trouble kind, const std::string& text) {
  if (t_current != nullptr && !text.empty()) t_current->Note(kind, text);
}

}  // namespace pictavo::platform
