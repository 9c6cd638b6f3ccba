#include "csSync.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>

namespace tmi {

namespace {

struct Pending {
    const std::function<void()>* fCall;
    std::exception_ptr fError;
    bool fDone = false;
};

std::mutex gLock;
std::condition_variable gDone;
std::deque<Pending*> gQueue;
std::thread::id gMainThread = std::this_thread::get_id();

}  // namespace

void SetMainThread() { gMainThread = std::this_thread::get_id(); }

bool IsMainThread() { return std::this_thread::get_id() == gMainThread; }

void Synchronize(const std::function<void()>& aCall) {
    if (IsMainThread()) {
        aCall();
        return;
    }
    Pending pending{&aCall, nullptr, false};
    std::unique_lock<std::mutex> lock(gLock);
    gQueue.push_back(&pending);
    gDone.wait(lock, [&] { return pending.fDone; });
    if (pending.fError) std::rethrow_exception(pending.fError);
}

bool CheckSynchronize() {
    bool any = false;
    for (;;) {
        Pending* next = nullptr;
        {
            std::lock_guard<std::mutex> lock(gLock);
            if (gQueue.empty()) break;
            next = gQueue.front();
            gQueue.pop_front();
        }
        any = true;
        try {
            (*next->fCall)();
        } catch (...) {
            next->fError = std::current_exception();
        }
        {
            std::lock_guard<std::mutex> lock(gLock);
            next->fDone = true;
        }
        gDone.notify_all();
    }
    return any;
}

}  // namespace tmi
