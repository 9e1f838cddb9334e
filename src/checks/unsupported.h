// Commands that the servers also have for agents of other platforms.  Each answers kUnavailable and why, whatever
// the request and the settings say.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

void ProcessTest_Ping(const BVRequest& request, TAVReply& reply);
void ProcessTest_Script(const BVRequest& request, TAVReply& reply);
void ProcessTest_SNMP(const BVRequest& request, TAVReply& reply);
void ProcessInfo_GetDriveList(const BVRequest& request, TAVReply& reply);

void ProcessTest_DiskSpace(const BVRequest& request, TAVReply& reply);  // free space is "TEST-UNC" here
void ProcessTest_Service(const BVRequest& request, TAVReply& reply);
void ProcessTest_NTLog(const BVRequest& request, TAVReply& reply);
void ProcessTest_Perf(const BVRequest& request, TAVReply& reply);
void ProcessInfo_ServicesList(const BVRequest& request, TAVReply& reply);
void ProcessInfo_EventLogFiles(const BVRequest& request, TAVReply& reply);
void ProcessInfo_EventLogSources(const BVRequest& request, TAVReply& reply);
