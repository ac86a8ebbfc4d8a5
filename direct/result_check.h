// The check every direct conversion's result passes before it counts: a reader for the target
// type opens it, and it holds what the source holds (pages, drawing entities, features of every
// layer, faces). See docs/engine.md ("What done means").
#pragma once

#include <string>
#include <string_view>

#include "platform/status.h"

namespace pictavo::direct {

class TZubDirect;

// Targets that hold one page: a direct conversion of a document writes one file per page.
inline constexpr std::string_view kOnePageTargets =
    ";svg;svgz;dxf;emf;wmf;eps;epi;plt;hpg;hp2;cgm;wpg;";

// Judges `result` (the routine's main output, before it is renamed into place) of the
// conversion of `source` that `d` ran; `outputs` is the number of files the routine wrote (one
// per page for targets of one page). OK, or why the result falls short.
pictavo::Status CheckDirectResult(const TZubDirect& d, const std::string& source,
                                  const std::string& result, int outputs);

}  // namespace pictavo::direct
