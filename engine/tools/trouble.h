// Why a stage failed: the recorder lives in platform/trouble.h, so that the imaging engine can
// note what it refuses; the stages and tools know it by these names.
#pragma once

#include "platform/trouble.h"

namespace pictavo::tools {

using platform::NoteTrouble;
using platform::Trouble;
using platform::TroubleRecorder;

}  // namespace pictavo::tools
