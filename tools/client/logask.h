// One look of a watched log, asked of an agent.
#pragma once

#include "client/agent.h"
#include "client/logwatch.h"

// Any thread.
bool AskLog(const TAgent& agent, const TLogQuery& query, TLogAnswer& answer, TFailure& failure);
