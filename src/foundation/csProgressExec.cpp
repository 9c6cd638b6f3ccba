// A job on a worker thread with its progress on the main thread.
#include <chrono>
#include <memory>

#include "csProgress.h"
#include "csSync.h"

namespace tmi {

namespace {
thread_local TcsProgressThread* tCurrentWorker = nullptr;
}

TcsProgressThread* CurrentProgressThread() noexcept { return tCurrentWorker; }

TcsProgressThread::TcsProgressThread(TcsProgressExec& aOwner, TProc aOnExecute, TProc aOnFinish,
                                     std::function<void()> aOnTerminate)
    : FOwner(aOwner), FOnExecute(std::move(aOnExecute)), FOnFinish(std::move(aOnFinish)), fOnTerminate(std::move(aOnTerminate)) {}

TcsProgressThread::~TcsProgressThread() {
    Terminate();
    WaitFor();
}

void TcsProgressThread::Start() {
    fThread = std::thread([this] { Execute(); });
    fId = fThread.get_id();
}

void TcsProgressThread::Execute() {
    tCurrentWorker = this;
    try {
        if (FOnExecute) FOnExecute(FOwner);
    } catch (...) {
        FFatalException = std::current_exception();
    }
    try {
        if (FOnFinish) Synchronize([this] { FOnFinish(FOwner); });
    } catch (...) {
        if (!FFatalException) FFatalException = std::current_exception();
    }
    try {
        if (fOnTerminate) Synchronize(fOnTerminate);
    } catch (...) {
    }
    fFinished = true;
}

void TcsProgressThread::WaitFor() {
    if (!fThread.joinable()) return;
    if (fThread.get_id() == std::this_thread::get_id()) return;
    // The worker may be waiting for the main thread: serve it until it ends.
    while (!fFinished) {
        if (IsMainThread()) CheckSynchronize();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    fThread.join();
}

TcsProgressExec::TcsProgressExec() : FProgress(std::make_unique<TcsProgress>(this)) {}

TcsProgressExec::~TcsProgressExec() {
    if (FThread) FThread->Terminate();
    FThread = nullptr;
    WaitFor();
    FProgress.reset();
}

void TcsProgressExec::WaitFor() {
    for (auto& thread : fThreads) thread->WaitFor();
}

void TcsProgressExec::Execute(bool aForceCancel) {
    if (aForceCancel) Cancel();
    if (ThreadEnabled) {
        // Workers that have ended are joined and let go of, so that a long-lived exec object
        // does not collect them.
        std::erase_if(fThreads, [](const std::unique_ptr<TcsProgressThread>& t) {
            if (!t->Finished()) return false;
            t->WaitFor();
            return true;
        });
        // On its end the worker lets go of itself, on the main thread.
        auto self = std::make_shared<TcsProgressThread*>(nullptr);
        auto thread = std::make_unique<TcsProgressThread>(*this, OnExecute, OnFinish, [this, self] {
            if (FThread == *self) FThread = nullptr;
        });
        *self = thread.get();
        FThread = thread.get();
        fThreads.push_back(std::move(thread));
        FThread->Start();
    } else {
        if (OnExecute) OnExecute(*this);
        if (OnFinish) OnFinish(*this);
    }
}

void TcsProgressExec::Cancel() {
    if (FThread) FThread->Terminate();
    FThread = nullptr;
    FProgress->Close();
}

}  // namespace tmi
