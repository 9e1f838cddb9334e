#include "tavctl/manyhosts.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <thread>

namespace {

class TFleet {
 public:
  TFleet(const std::vector<TTarget>& all, const TFleetPlan& how,
         const std::function<TOutcome(const TTarget&)>& asking,
         const std::function<void(const TTarget&, TOutcome&)>& reporting)
      : targets(all), plan(how), ask(asking), report(reporting) {}

  // Until one went well, or too many did not.
  void AskCanary() {
    while (!wentWell && AskNext()) continue;
  }
  void AskRest() {
    while (AskNext()) continue;
  }
  void ReportSkipped() {
    for (; next < targets.size(); ++next) {
      TOutcome outcome;
      Fail(outcome.failure, TKind::kSkipped, "not asked, because it failed elsewhere",
           "mend what failed, or raise --max-failures");
      report(targets[next], outcome);
    }
  }

 private:
  // False when there is no further host to be begun.
  bool AskNext() {
    size_t i = 0;
    {
      const std::lock_guard<std::mutex> hold(lock);
      if (next == targets.size() || (plan.maxFailures > 0 && failures >= plan.maxFailures)) return false;
      i = next++;
    }
    TOutcome outcome = ask(targets[i]);
    const std::lock_guard<std::mutex> hold(lock);
    const bool well = outcome.Ok();
    wentWell = wentWell || well;
    failures += well ? 0 : 1;
    report(targets[i], outcome);
    return true;
  }

  const std::vector<TTarget>& targets;
  const TFleetPlan& plan;
  const std::function<TOutcome(const TTarget&)>& ask;
  const std::function<void(const TTarget&, TOutcome&)>& report;
  std::mutex lock;  // of what follows, and of reporting
  size_t next = 0;
  long long failures = 0;
  bool wentWell = false;
};

}  // namespace

void AskMany(const std::vector<TTarget>& targets, const TFleetPlan& plan,
             const std::function<TOutcome(const TTarget&)>& ask,
             const std::function<void(const TTarget&, TOutcome&)>& report) {
  TFleet fleet(targets, plan, ask, report);
  if (plan.maxFailures > 0) fleet.AskCanary();
  std::vector<std::thread> workers;
  const size_t count = std::min(targets.size(), static_cast<size_t>(std::max(1, plan.jobs)));
  try {
    for (size_t i = 1; i < count; ++i) workers.emplace_back([&fleet] { fleet.AskRest(); });
  } catch (const std::system_error&) {
    // Fewer threads do it, too.
  }
  fleet.AskRest();
  for (std::thread& worker : workers) worker.join();
  fleet.ReportSkipped();
}
