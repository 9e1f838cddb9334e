#include "checks/unsupported.h"

#include "protocol/results.h"

namespace {

void NotYet(TAVReply& reply) {
  Answer(reply, kUnavailable, "not implemented yet");
}
void NotHere(TAVReply& reply) {
  Answer(reply, kUnavailable, "Not applicable for UNIX/Linux");
}

}  // namespace

void ProcessTest_Ping(const BVRequest&, TAVReply& reply) {
  NotYet(reply);
}
void ProcessTest_Script(const BVRequest&, TAVReply& reply) {
  NotYet(reply);
}
void ProcessTest_SNMP(const BVRequest&, TAVReply& reply) {
  NotYet(reply);
}
void ProcessInfo_GetDriveList(const BVRequest&, TAVReply& reply) {
  NotYet(reply);
}

void ProcessTest_DiskSpace(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessTest_Service(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessTest_NTLog(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessTest_Perf(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessInfo_ServicesList(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessInfo_EventLogFiles(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
void ProcessInfo_EventLogSources(const BVRequest&, TAVReply& reply) {
  NotHere(reply);
}
