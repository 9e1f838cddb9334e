#include "actions/extcommand.h"

#include "core/process.h"
#include "protocol/parameters.h"
#include "protocol/readparam.h"
#include "protocol/results.h"

void ProcessAct_ExternalCmd(const BVRequest& request, TAVReply& reply) {
  namespace at = params::external_cmd;
  const String cmdline = ReadText(request, at::kCommandLine), dir = ReadText(request, at::kFolder);
  String error;
  int unused = 0, timeoutMs = 0, exitcode = 0;
  if (!ReadNumber(request, at::kUnused, unused) || !ReadNumber(request, at::kTimeoutMs, timeoutMs)) {
    return Answer(reply, kWrongParameter, "Wrong parameter");
  }
  if (cmdline.Length() == 0) return Answer(reply, kWrongParameter, "Command line to execute is not specified");

  const char* where = dir.Length() == 0 ? nullptr : dir.CStr();
  if (!SystemEx(cmdline.CStr(), where, timeoutMs, exitcode, error)) return Answer(reply, kNotExamined, error);

  reply.SetResult(kDone);
  reply.AddIntParam(exitcode);
}
