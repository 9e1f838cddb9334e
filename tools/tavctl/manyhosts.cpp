#include "tavctl/manyhosts.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>

void AskMany(const std::vector<TTarget>& targets, int jobs, const std::function<TOutcome(const TTarget&)>& ask,
             const std::function<void(const TTarget&, TOutcome&)>& report) {
  std::vector<std::optional<TOutcome>> done(targets.size());
  std::atomic<size_t> next{0};
  std::mutex lock;  // of `done` and `reported`
  size_t reported = 0;

  const auto work = [&] {
    for (size_t i = next++; i < targets.size(); i = next++) {
      TOutcome outcome = ask(targets[i]);
      const std::lock_guard<std::mutex> hold(lock);
      done[i] = std::move(outcome);
      for (; reported < done.size() && done[reported]; ++reported) {
        report(targets[reported], *done[reported]);
        done[reported] = TOutcome();  // a long list must not keep every result
      }
    }
  };
  std::vector<std::thread> workers;
  const size_t count = std::min(targets.size(), static_cast<size_t>(std::max(1, jobs)));
  for (size_t i = 1; i < count; ++i) workers.emplace_back(work);
  work();
  for (std::thread& worker : workers) worker.join();
}
