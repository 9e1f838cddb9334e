// Actions that send something from this machine: data to a TCP or UDP port, a message to a syslog server.
//
// Each handler runs on its session's thread and blocks it for as long as the lookup, the connect and the sending
// take, and for the delay that the request asks for.  When the requester has gone meanwhile, it does no more.
#pragma once

#include "protocol/bvrequest.h"
#include "protocol/tavreply.h"

// ACT-TCPUDPsend.  Parameters: host; port; "0" for TCP, anything else for UDP; first data; seconds to wait before
// the second data; second data, may be empty.  "200" once the first data are sent: the second go out as best they
// can.
void ProcessAct_TCPSend(const BVRequest& request, TAVReply& reply);

// ACT-Syslog.  Parameters: server; port; facility; severity, 0 to 7; message.  "200" even when the server cannot be
// resolved or the datagram not be sent: the servers treat a syslog message as sent and forgotten.
void ProcessAct_Syslog(const BVRequest& request, TAVReply& reply);
