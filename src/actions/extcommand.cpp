#include "actions/extcommand.h"

#include "core/process.h"
#include "protocol/results.h"
#include "protocol/tav_const.h"

void ProcessAct_ExternalCmd(const BVRequest& request, TAVReply& reply) {
  String cmdline = request.GetParam(1, 1), dir = request.GetParam(2, 1), error;
  int unused = 0, timeoutMs = 0, exitcode = 0;
  if (!tavDecodeInt(request.GetParam(3, 1), &unused) || !tavDecodeInt(request.GetParam(4, 1), &timeoutMs)) {
    return Answer(reply, kWrongParameter, "Wrong parameter");
  }
  if (cmdline.Length() == 0) return Answer(reply, kWrongParameter, "Command line to execute is not specified");

  const char* where = dir.Length() == 0 ? nullptr : dir.CStr();
  if (!SystemEx(cmdline.CStr(), where, timeoutMs, exitcode, error)) return Answer(reply, kNotExamined, error);

  reply.SetResult(kDone);
  reply.AddIntParam(exitcode);
}
