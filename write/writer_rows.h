// The ordered table of target rows of TZubConvert::Convert. The first row whose test holds
// decides; its writer's result is Convert's result.
#pragma once

#include <span>
#include <string_view>

#include "settings/main_settings.h"
#include "write/writers.h"

namespace pictavo::writer {

struct WriterRow {
  int order;              // the row's place in the walk, from 1
  std::string_view list;  // the row holds when the key (";jpg;") occurs in it; empty = any key
  // Further switch that must be on; nullptr = none. A row whose switch is off falls through.
  bool (*when)(const settings::TMainSettings& s);
  Writer writer;           // nullptr = the target is not handled (status 98)
  std::string_view label;  // the writer's name, for logs and tests
};

std::span<const WriterRow> WriterRows();

}  // namespace pictavo::writer
