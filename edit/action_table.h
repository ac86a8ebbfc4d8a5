// The dispatcher's table of editing actions: one row per key, in the order the dispatcher tests
// them, with the parameter counts it accepts and the routine that converts the parameters and runs
// the action. Also the table of display names used in the log.
//
// Both tables are constant data; lookups are pure and thread-safe.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "edit/action_context.h"
#include "edit/script_com.h"

namespace pictavo::editing {

// Which reading of the line a row's key is compared with.
enum class KeyReading {
  kLowerKey,   // the key-only reading, lower-cased
  kUpperName,  // the record's name, upper-cased (the "CHANGE_TO" family)
};

// Bit n set: exactly n parameters accepted. kAnyCount: the count is not checked.
inline constexpr uint32_t kAnyCount = 0xFFFFFFFFu;
constexpr uint32_t Counts(std::initializer_list<int> counts) {
  uint32_t m = 0;
  for (int c : counts) m |= 1u << c;
  return m;
}

// Runs one action. Returns 0 on success; throws BadParameter for a malformed number.
using RowRoutine = int (*)(ActionContext& ctx, const Script_com& com);

struct ActionRow {
  std::string_view key;
  KeyReading reading;
  uint32_t counts;
  RowRoutine run;
};

struct DisplayName {
  std::string_view key;  // lower case
  std::string_view name;
};

std::span<const ActionRow> ActionTable();
std::span<const DisplayName> DisplayTable();

// True when the row accepts a line with `count` parameters.
bool AcceptsCount(const ActionRow& row, int count);

// The display name of a key (any case); empty when the key has none.
std::string_view DisplayNameOf(std::string_view key);

// Both readings of one line, and the row keys are compared with.
struct ParsedLine {
  Script_com com;
  std::string key_lower;   // the key-only reading, lower-cased
  std::string name_upper;  // the record's name, upper-cased
};
ParsedLine ParseLine(std::string_view line);

// The first row of `table` whose key matches the line, or nullptr.
const ActionRow* MatchRow(std::span<const ActionRow> table, const ParsedLine& line);

// Runs every matching row whose count condition holds (keys differ, so at most one). True when a
// row ran and returned 0; a thrown BadParameter or other exception counts as failure.
bool Dispatch(std::span<const ActionRow> table, ActionContext& ctx, const ParsedLine& line);

}  // namespace pictavo::editing
