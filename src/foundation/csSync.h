// Synchronize: a worker thread hands a call to the main thread and waits for it. The main
// thread runs waiting calls whenever it pumps (CheckSynchronize).
#pragma once

#include <functional>

namespace tmi {

// The thread that first touched the foundation counts as the main thread, unless set.
void SetMainThread();
bool IsMainThread();

// Runs aCall on the main thread and waits; on the main thread itself it runs at once.
// An exception of the call is raised again in the waiting thread.
void Synchronize(const std::function<void()>& aCall);

// Runs the calls that workers are waiting on; returns whether any ran. Main thread only.
bool CheckSynchronize();

}  // namespace tmi
