#include "engine/tools/job_context.h"

namespace pictavo::tools {

// The settings record keeps its own copy of the default time-outs (it sits below this layer).
static_assert(settings::TMainSettings::Limits{}.tool_timeout == kToolTimeouts[0].default_s &&
              settings::TMainSettings::Limits{}.render_timeout == kToolTimeouts[1].default_s &&
              settings::TMainSettings::Limits{}.office_timeout == kToolTimeouts[2].default_s &&
              settings::TMainSettings::Limits{}.ocr_timeout == kToolTimeouts[3].default_s);

JobLimits LimitsFromSettings(const settings::TMainSettings::Limits& from) {
  JobLimits limits;
  limits.timeout_s[static_cast<int>(ToolPace::kCodec)] = from.tool_timeout;
  limits.timeout_s[static_cast<int>(ToolPace::kRender)] = from.render_timeout;
  limits.timeout_s[static_cast<int>(ToolPace::kOffice)] = from.office_timeout;
  limits.timeout_s[static_cast<int>(ToolPace::kOcr)] = from.ocr_timeout;
  if (from.max_megapixels > 0)
    limits.max_pixels = static_cast<uint64_t>(from.max_megapixels) * 1000000u;
  if (from.max_memory_mb > 0) limits.max_memory_mb = static_cast<uint64_t>(from.max_memory_mb);
  if (from.max_unpacked_mb > 0)
    limits.max_unpacked_mb = static_cast<uint64_t>(from.max_unpacked_mb);
  return limits;
}

}  // namespace pictavo::tools
