#include "agent/configloads.h"

#include <exception>

#include "agent/flags.h"
#include "agent/workers.h"
#include "config/settings.h"

namespace {

constexpr int kAgainMs = 1000;

}  // namespace

void* TConfigLoads::LoadMain(void* argument) {
  TState end = kFailed;
  try {
    String ignored;  // there is nobody to tell
    (void)TTAVSettings::LoadOptions(ignored);
    end = kIdle;
  } catch (const std::exception&) {
  }
  *static_cast<std::atomic<TState>*>(argument) = end;
  WakeMainLoop();
  return nullptr;
}

void TConfigLoads::Begin() {
  if (state == kFailed) {
    state = kIdle;
    due = true;
    againMs = MonotonicMs() + kAgainMs;
  }
  if (!due || state == kRunning || MonotonicMs() < againMs) return;
  due = false;
  state = kRunning;
  if (!StartThread(LoadMain, &state)) state = kFailed;
}
