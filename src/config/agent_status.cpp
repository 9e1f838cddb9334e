#include "config/agent_status.h"

TAgentStatus AgentStatus;
