// The command table: a row names a command, its arguments, and how it is carried out.  The options parser, the help
// and the completions all read it; adding a command is adding a row.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/agent.h"
#include "tavctl/args.h"
#include "tavctl/output.h"
#include "tavctl/result.h"

// What a running command may use.  One for each host; nothing in it is shared but constants.
struct TContext {
  TView view;
  const TAgent* agent = nullptr;  // null for a local command
  std::string command;            // as the user named it: "test disk"
  std::string content;            // what the row's `prepare` has read
  std::string agentConfig;        // the agent's own file, when the user has named it
  long long patienceMs = 0;       // how long the whole may take a host
};

// Simple commands turn their arguments into parameters and the reply into a result.
using TBuild = void (*)(const TArgs& args, TParams& params);
using TDecode = void (*)(TReader& reply, TResult& result);
using TWorkMs = long long (*)(const TArgs& args);  // how long the agent may be busy with it
// The others do all of it themselves.
using TRun = void (*)(TContext& context, const TArgs& args, TOutcome& outcome);

// Whether it changes a host, so that it is asked for first, and without a terminal needs --yes.
using TChanges = bool (*)(const TArgs& args, bool manyHosts);
bool Always(const TArgs& args, bool manyHosts);
bool OverManyHosts(const TArgs& args, bool manyHosts);
// What is read and looked at once, before any host is asked.
using TPrepare = bool (*)(const TView& view, const TArgs& args, std::string& content, TFailure& failure);

inline constexpr TArgRow kExitStatus = {"--exit-status", TArgKind::kFlag,
                                        "end with it: 0 yes, 1 no, or the program's"};
inline constexpr const char* kMaxFailures = "--max-failures";

struct TCommandRow {
  const char* name;
  const char* help;
  std::vector<TArgRow> args;

  const char* wire = nullptr;
  TBuild build = nullptr;
  TDecode decode = nullptr;
  TWorkMs workMs = nullptr;
  TRun run = nullptr;

  bool local = false;          // asks no agent
  bool oneHost = false;        // makes no sense with --hosts
  TChanges changes = nullptr;  // null: nothing
  TPrepare prepare = nullptr;
  int (*exits)(const TResult& result) = nullptr;  // the exit status that --exit-status asks for
  bool fragile = false;                           // can cost a host, so over many a first one shows that it works

  TCommandRow& Local() { return local = true, *this; }
  TCommandRow& OneHost() { return oneHost = true, *this; }
  TCommandRow& Changes(TChanges when) { return changes = when, *this; }
  TCommandRow& Prepare(TPrepare how) { return prepare = how, *this; }
  TCommandRow& Exits(int (*status)(const TResult&)) { return exits = status, *this; }
  TCommandRow& Fragile() { return fragile = true, *this; }
  TCommandRow& Works(TWorkMs time) { return workMs = time, *this; }
};

TCommandRow Simple(const char* name, const char* help, const char* wire, std::vector<TArgRow> args, TBuild build,
                   TDecode decode);
TCommandRow Custom(const char* name, const char* help, std::vector<TArgRow> args, TRun run);

// The groups, each in a file of its own.
std::vector<TCommandRow> InfoCommands();
std::vector<TCommandRow> FileCommands();
std::vector<TCommandRow> LogCommands();
std::vector<TCommandRow> NetCommands();
std::vector<TCommandRow> ScriptCommands();
std::vector<TCommandRow> ActionCommands();
std::vector<TCommandRow> ListCommands();
std::vector<TCommandRow> SettingsCommands();
std::vector<TCommandRow> LifecycleCommands();
std::vector<TCommandRow> UpgradeCommands();
std::vector<TCommandRow> RawCommands();
std::vector<TCommandRow> ConfigCommands();
std::vector<TCommandRow> ExprCommands();
std::vector<TCommandRow> CompletionCommands();

const std::vector<TCommandRow>& AllCommands();

// Carries out a row; never throws.
TOutcome RunCommand(const TCommandRow& row, TContext& context, const TArgs& args);
// A line on standard error, unless the user wants quiet.
void Note(const TView& view, const std::string& text);
