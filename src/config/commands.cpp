#include "config/commands.h"

#include <string_view>

#include "config/settings_keys.h"

namespace {

constexpr bool NamesAreUnique() {
  for (int i = 0; i < kCommandCount; ++i) {
    for (int j = 0; j < i; ++j) {
      if (std::string_view(kCommands[i].name) == kCommands[j].name) return false;
    }
  }
  return true;
}
static_assert(NamesAreUnique(), "a command stands in one row alone");

constexpr bool NeedsSwitch(TGate gate) {
  return gate == TGate::kTest || gate == TGate::kAction;
}

constexpr bool GatesFit() {
  for (const TCommand& command : kCommands) {
    if (NeedsSwitch(command.gate) != (command.switches[0] != nullptr)) return false;
  }
  return true;
}
static_assert(GatesFit(), "a test or an action names the setting that switches it on, every other command none");

constexpr TReport ReportOf(TGate gate) {
  return gate == TGate::kTest ? TReport::kTests : gate == TGate::kAction ? TReport::kActions : TReport::kNone;
}

constexpr bool IsReported(TSwitchField field, TReport report) {
  for (const TSettingKey& row : kSettingKeys) {
    if (row.field.number == field) return row.report == report;
  }
  return false;
}

constexpr bool SwitchesAreReported() {
  for (const TCommand& command : kCommands) {
    for (const TSwitchField field : command.switches) {
      if (field != nullptr && !IsReported(field, ReportOf(command.gate))) return false;
    }
  }
  return true;
}
static_assert(SwitchesAreReported(),
              "\"GetInfo\" lists every switch: in config/settings_keys that of a test is a kTests row, that of an "
              "action a kActions row");

constexpr bool Switches(TSwitchField field) {
  for (const TCommand& command : kCommands) {
    for (const TSwitchField used : command.switches) {
      if (used != nullptr && used == field) return true;
    }
  }
  return false;
}

constexpr bool ReportsAreSwitches() {
  for (const TSettingKey& row : kSettingKeys) {
    const bool listed = row.report == TReport::kTests || row.report == TReport::kActions;
    if (listed && !Switches(row.field.number)) return false;
  }
  return true;
}
static_assert(ReportsAreSwitches(), "what \"GetInfo\" lists as a test or an action switches a command on");

}  // namespace

bool SwitchedOn(const TCommand& command, const TTAVSettings& settings) {
  for (const TSwitchField field : command.switches) {
    if (field != nullptr && settings.*field) return true;
  }
  return command.switches[0] == nullptr;
}
