// Many agents at once: so many at a time, reported in the order of the list.
#pragma once

#include <functional>
#include <vector>

#include "client/target.h"
#include "tavctl/result.h"

// Runs `ask` for every target on at most `jobs` threads and hands each outcome to `report` as soon as all before it
// are through; `report` runs on one thread at a time.
void AskMany(const std::vector<TTarget>& targets, int jobs, const std::function<TOutcome(const TTarget&)>& ask,
             const std::function<void(const TTarget&, TOutcome&)>& report);
