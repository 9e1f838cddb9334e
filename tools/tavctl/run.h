// Carries out an invocation: whom to ask, with what password, and what to make of the outcomes.
#pragma once

#include "tavctl/options.h"

// Returns the exit status.
int Run(TInvocation& invocation, const TView& view);
int ReportFailure(const TView& view, const std::string& command, const TFailure& failure);
