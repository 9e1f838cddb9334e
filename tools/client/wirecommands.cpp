#include "client/wirecommands.h"

#include "config/commands.h"
#include "config/settings_keys.h"

namespace {

const char* KeyOf(TSwitchField field) {
  for (const TSettingKey& row : kSettingKeys)
    if (row.field.number == field) return row.key;
  return nullptr;
}

TWireCommand FromTable(const TCommand& command) {
  if (command.gate == TGate::kManagement) return {command.name, "allowmanage", "manageaddr"};
  if (command.gate == TGate::kUpdates) return {command.name, "allowupdates", "updateaddr"};
  const TSwitchField field = command.switches[0];
  return {command.name, field == nullptr ? nullptr : KeyOf(field), nullptr};
}

}  // namespace

const std::vector<TWireCommand>& WireCommands() {
  static const std::vector<TWireCommand> commands = [] {
    std::vector<TWireCommand> all;
    for (const TCommand& command : kCommands) all.push_back(FromTable(command));
    return all;
  }();
  return commands;
}

const TWireCommand* FindWireCommand(const std::string& name) {
  for (const TWireCommand& command : WireCommands())
    if (name == command.name) return &command;
  return nullptr;
}
