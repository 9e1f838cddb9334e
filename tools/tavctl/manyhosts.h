// Many agents at once: so many at a time, each reported as it answers.
#pragma once

#include <functional>
#include <vector>

#include "client/target.h"
#include "tavctl/result.h"

struct TFleetPlan {
  int jobs = 8;
  // For what can cost a host: one after the other until it went well with one, then the others; and no host is
  // begun once so many have failed.  0: every host is asked, whatever becomes of the others.
  long long maxFailures = 0;
};

// Runs `ask` for every target on at most `jobs` threads and hands each outcome to `report` at once, which runs on
// one thread at a time.  Hosts that are not asked are reported as skipped.
void AskMany(const std::vector<TTarget>& targets, const TFleetPlan& plan,
             const std::function<TOutcome(const TTarget&)>& ask,
             const std::function<void(const TTarget&, TOutcome&)>& report);
