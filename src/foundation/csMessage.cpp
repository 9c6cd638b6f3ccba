#include "csMessage.h"

#include <algorithm>
#include <chrono>

#include "csSync.h"

namespace tmi {

namespace {
int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
}  // namespace

// ---------------------------------------------------------------------------------------------

TcsMessageHandler::TcsMessageHandler(const void* aParent, TcsMessageManager* aManager) : fParent(aParent) {
    (aManager ? *aManager : GlobalMessageManager()).RegisterHandler(this);
}

TcsMessageHandler::~TcsMessageHandler() {
    if (fMessageManager) fMessageManager->UnregisterHandler(this);
}

void TcsMessageHandler::ProcessMessage(const IcsMessage&) { throw Exception("Abstract error"); }

// ---------------------------------------------------------------------------------------------

void TcsPlainMessageTimer::Start(int aIntervalMs) {
    fInterval = aIntervalMs;
    if (!fEnabled) fLastFire = NowMs();
    fEnabled = true;
}

bool TcsPlainMessageTimer::Poll(bool aForce) {
    const bool synced = CheckSynchronize();
    if (!fEnabled || (!aForce && NowMs() - fLastFire < fInterval)) return synced;
    fLastFire = NowMs();
    const bool any = fManager.QueueCount() > 0;
    fManager.ProcessAllMessages();
    return any || synced;
}

// ---------------------------------------------------------------------------------------------

TcsMessageManager::TcsMessageManager() : fTimer(std::make_unique<TcsPlainMessageTimer>(*this)) {}

TcsMessageManager::~TcsMessageManager() {
    // The handlers go first, so that no delivery the thread still asks for reaches one.
    UnregisterAllHandlers();
    StopThread();
}

IcsMessageTimer& TcsMessageManager::Timer() { return *fTimer; }

void TcsMessageManager::SetTimer(std::unique_ptr<IcsMessageTimer> aTimer) {
    fTimer = aTimer ? std::move(aTimer) : std::make_unique<TcsPlainMessageTimer>(*this);
}

TcsPlainMessageTimer* TcsMessageManager::PlainTimer() { return dynamic_cast<TcsPlainMessageTimer*>(fTimer.get()); }

void TcsMessageManager::SendMessage(const IcsMessage& aMessage) { ProcessMessage(aMessage); }

void TcsMessageManager::PostMessage(const IcsMessage& aMessage) {
    fMessages.push_front(aMessage);
    if (fMode == mmThread) {
        StartThread();
    } else {
        fTimer->Start(fSleepValue);
    }
}

void TcsMessageManager::ProcessMessage() {
    if (fMessages.empty()) return;
    const IcsMessage oldest = fMessages.back();
    ProcessMessage(oldest);
}

void TcsMessageManager::ProcessMessage(const IcsMessage& aMessage) {
    const bool timerWasOn = fTimer->Enabled();
    fTimer->SetEnabled(false);
    auto finish = [&] {
        const auto it = std::find(fMessages.begin(), fMessages.end(), aMessage);
        if (it != fMessages.end()) fMessages.erase(it);
        fTimer->SetEnabled(timerWasOn);
    };
    // Handlers in registration order, from a snapshot; one that has left meanwhile is skipped.
    const std::vector<TcsMessageHandler*> snapshot = fHandlers;
    try {
        for (TcsMessageHandler* h : snapshot) {
            if (std::find(fHandlers.begin(), fHandlers.end(), h) == fHandlers.end()) continue;
            if (h->FProcessMessage)
                h->FProcessMessage(aMessage);
            else
                h->ProcessMessage(aMessage);
            if (aMessage->Handled) break;
        }
    } catch (...) {
        finish();
        throw;
    }
    finish();
}

void TcsMessageManager::ProcessAllMessages() {
    // A call from inside a pass is noted: the timer is left armed for a pass of its own.
    if (fInProcessAllMessages) {
        fLastStateProcessAllMessages = true;
        return;
    }
    const bool timerWasOn = fTimer->Enabled();
    fTimer->SetEnabled(false);
    fInProcessAllMessages = true;
    fLastStateProcessAllMessages = false;
    try {
        while (!fMessages.empty()) ProcessMessage();
    } catch (...) {
        fInProcessAllMessages = false;
        fTimer->SetEnabled(timerWasOn);
        throw;
    }
    fInProcessAllMessages = false;
    // An empty queue leaves the timer running idly.
    fTimer->SetEnabled(timerWasOn || fLastStateProcessAllMessages);
    fLastStateProcessAllMessages = false;
}

void TcsMessageManager::RegisterHandler(TcsMessageHandler* aHandler) {
    if (!aHandler) return;
    // Registering again moves the handler to the end: it is detached first, from whichever
    // manager has it.
    if (aHandler->fMessageManager) aHandler->fMessageManager->UnregisterHandler(aHandler);
    aHandler->fMessageManager = this;
    fHandlers.push_back(aHandler);
}

void TcsMessageManager::UnregisterHandler(TcsMessageHandler* aHandler) {
    const auto it = std::find(fHandlers.begin(), fHandlers.end(), aHandler);
    if (it != fHandlers.end()) fHandlers.erase(it);
    if (aHandler && aHandler->fMessageManager == this) aHandler->fMessageManager = nullptr;
}

TcsMessageHandler* TcsMessageManager::RegisterProcedure(TcsProcessMessage aProcedure, const void* aObject) {
    auto handler = std::make_unique<TcsMessageHandler>(aObject, this);
    handler->FProcessMessage = std::move(aProcedure);
    TcsMessageHandler* raw = handler.get();
    fOwnedHandlers.push_back(std::move(handler));
    return raw;
}

void TcsMessageManager::UnregisterProcedure(const void* aObject) {
    for (size_t i = fHandlers.size(); i-- > 0;) {
        TcsMessageHandler* h = fHandlers[i];
        if (h->Parent() != aObject && static_cast<const void*>(h) != aObject) continue;
        UnregisterHandler(h);
        const auto owned = std::find_if(fOwnedHandlers.begin(), fOwnedHandlers.end(),
                                        [&](const auto& p) { return p.get() == h; });
        if (owned != fOwnedHandlers.end()) fOwnedHandlers.erase(owned);
    }
}

void TcsMessageManager::UnregisterAllHandlers() {
    while (!fHandlers.empty()) {
        TcsMessageHandler* h = fHandlers.back();
        fHandlers.pop_back();
        h->fMessageManager = nullptr;  // its manager is gone
    }
    fOwnedHandlers.clear();
}

void TcsMessageManager::StartThread() {
    if (fThread.joinable()) return;
    fTerminated = false;
    fThreadDone = false;
    fThread = std::thread([this] {
        try {
            while (!fTerminated) {
                std::this_thread::sleep_for(std::chrono::milliseconds(fSleepValue));
                if (fTerminated) break;
                Synchronize([this] { ProcessAllMessages(); });
            }
        } catch (...) {
            fException = std::current_exception();
        }
        fThreadDone = true;
    });
}

void TcsMessageManager::StopThread() {
    if (!fThread.joinable()) return;
    fTerminated = true;
    // The thread may be waiting for the main thread: serve it until it has ended.
    while (!fThreadDone) {
        CheckSynchronize();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    fThread.join();
}

TcsMessageManager& GlobalMessageManager() {
    static TcsMessageManager manager;
    return manager;
}

}  // namespace tmi
