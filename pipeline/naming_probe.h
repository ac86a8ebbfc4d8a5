// The header probe that destination naming uses: the imaging engine's codec registry, so that
// every format the engine knows gives its size, TIFF tags and EXIF date to the naming tokens.
#pragma once

#include "settings/image_header_probe.h"

namespace pictavo::pipeline {

// One constant object for the whole process; holds no state, so any worker may use it.
const settings::ImageHeaderProbe& NamingProbe();

}  // namespace pictavo::pipeline
