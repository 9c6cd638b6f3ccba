// TcsProgress: what a long job reports through and asks whether it should stop. It keeps
// the values itself, shows them through an exchangeable view (TcsProgressControl), refreshes
// and pumps at most every 100 ms, and turns a press of Cancel into a state or an exception.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "csCommon.h"

namespace tmi {

class TcsProgress;
class TcsProgressExec;
class TcsProgressThread;
class TcsProgressCallback;

// Which operation a worker's call frame asks the main thread to perform.
enum TcsProcedureIndex : uint8_t { piOpen, piNext, piSetPos, piSetMax, piSetText, piClose, piAddMax };

// The abstract view: getters give zero, setters do nothing, so a progress without a window
// runs as well, and a view overrides only what it shows.
class TcsProgressControl {
public:
    explicit TcsProgressControl(TcsProgress& aOwner) : fOwner(aOwner) {}
    virtual ~TcsProgressControl() = default;

    [[nodiscard]] virtual int ModalResult() const { return 0; }
    virtual void SetModalResult(int) {}
    [[nodiscard]] virtual uintptr_t ParentHWND() const { return 0; }
    virtual void SetParentHWND(uintptr_t) {}
    [[nodiscard]] virtual std::string TimeCaption() const { return {}; }
    virtual void SetTimeCaption(const std::string&) {}
    [[nodiscard]] virtual int64_t Min() const { return 0; }
    virtual void SetMin(int64_t) {}
    [[nodiscard]] virtual int64_t Max() const { return 0; }
    virtual void SetMax(int64_t) {}
    [[nodiscard]] virtual int64_t Position() const { return 0; }
    virtual void SetPosition(int64_t) {}
    [[nodiscard]] virtual std::string Text() const { return {}; }
    virtual void SetText(const std::string&) {}
    [[nodiscard]] virtual std::string Message() const { return {}; }
    virtual void SetMessage(const std::string&) {}
    [[nodiscard]] virtual std::string Header() const { return {}; }
    virtual void SetHeader(const std::string&) {}
    [[nodiscard]] virtual std::string Caption() const { return {}; }
    virtual void SetCaption(const std::string&) {}
    [[nodiscard]] virtual bool Marquee() const { return false; }
    virtual void SetMarquee(bool) {}
    [[nodiscard]] virtual bool TaskbarProgressActive() const { return false; }
    virtual void SetTaskbarProgressActive(bool) {}
    std::function<void()> OnCancel;
    [[nodiscard]] virtual bool Visible() const { return false; }
    virtual void SetVisible(bool) {}

    virtual void Show() {}
    virtual void Hide() {}
    virtual void LinkTaskbarProgress() {}
    // Whether the cancel goes on.
    virtual bool DoAskOnCancel() { return true; }
    virtual void EnableTaskWindows() {}
    virtual void DisableTaskWindows() {}
    virtual void ProcessMessages() {}
    virtual int ShowModal(int /*aProcessId*/) { return 0; }
    // A notice to the operator.
    virtual void Note(const std::string&) {}

protected:
    TcsProgress& fOwner;
};

using TcsProgressControlClass = std::function<std::unique_ptr<TcsProgressControl>(TcsProgress&)>;

// The control class a progress takes when it has none; the GUI or the command line sets it.
TcsProgressControlClass& DefaultProgressControlClass();
// The module-wide application title; "Выполняется" stands in when it is empty.
std::string& ApplicationTitle();

// Elapsed time since the last Reset.
class TcsProgressTime {
public:
    explicit TcsProgressTime(std::function<uint32_t()> aTick) : fTick(std::move(aTick)) { Reset(); }
    void Reset() { fTimeStart = fTick(); }
    [[nodiscard]] uint32_t Elapsed() const { return fTick() - fTimeStart; }
    // "Прошло: 12 сек. Осталось: 3 мин." once ten seconds have passed; empty before.
    [[nodiscard]] std::string GetTimeCaption(int64_t aPos, int64_t aMax) const;

private:
    std::function<uint32_t()> fTick;
    uint32_t fTimeStart = 0;
};

class TcsProgress {
public:
    // An exec object as owner makes its worker thread the one whose calls are marshalled.
    explicit TcsProgress(TcsProgressExec* aOwner = nullptr);
    ~TcsProgress();
    TcsProgress(const TcsProgress&) = delete;
    TcsProgress& operator=(const TcsProgress&) = delete;

    void Open(std::string_view aText = {}, std::string_view aMessage = {}, std::string_view aHeader = {},
              std::string_view aCaption = {}, int64_t aMax = 0);
    void Next(int64_t aIncrement = 1) { Next({}, {}, {}, {}, aIncrement); }
    void Next(std::string_view aText, int64_t aIncrement = 1) { Next(aText, {}, {}, {}, aIncrement); }
    void Next(std::string_view aText, std::string_view aMessage, int64_t aIncrement = 1) {
        Next(aText, aMessage, {}, {}, aIncrement);
    }
    void Next(std::string_view aText, std::string_view aMessage, std::string_view aHeader, int64_t aIncrement = 1) {
        Next(aText, aMessage, aHeader, {}, aIncrement);
    }
    void Next(std::string_view aText, std::string_view aMessage, std::string_view aHeader, std::string_view aCaption,
              int64_t aIncrement = 1);
    void SetMax(int64_t aMax);
    void AddMax(int64_t aMaxInc);
    void SetPos(int64_t aPos);
    // Empty arguments leave their value as it is.
    void SetText(std::string_view aText, std::string_view aMessage = {}, std::string_view aHeader = {},
                 std::string_view aCaption = {});
    void Note(const std::string& aMessage);
    void Close();
    // Waits for another process, serving its calls over the callback socket: 1 when it ended
    // with a code of 0 or less (or one that cannot be read), 2 when it ended with a code above
    // 0 or the application is going down. Raises before Open.
    int ShowModal(int aProcessId);
    // The name of the local socket another process drives this progress through; made at the
    // first call.
    std::string GetCallbackWnd();
    // Serves what arrived on the callback socket, waiting at most aWaitMs for something;
    // returns whether anything was served. Main thread only.
    bool ProcessCallbacks(int aWaitMs = 0);
    // The one place that refreshes the view and pumps, at most every 100 ms.
    bool Cancelled();
    // The Cancel button: asks for the cancel, processed at the next call (or at once with
    // AutoProcessCancel).
    void RequestCancel();

    bool CanDoCancel = true;
    bool AbortOnCancel = true;
    bool AskOnCancel = true;
    bool AutoProcessCancel = false;
    bool CanShowForm = true;
    uintptr_t ParentHWND = 0;
    std::string CallbackResult;
    TcsProgressControlClass ControlClass;
    // The tick source in milliseconds; replaceable for tests.
    std::function<uint32_t()> TickCount;

    [[nodiscard]] TcsProgressExec* Owner() const noexcept { return fOwner; }
    // The worker whose calls go through the main thread; none without an exec owner.
    [[nodiscard]] TcsProgressThread* Thread() const noexcept;
    [[nodiscard]] TcsProgressControl* Control() const noexcept { return fProgressControl.get(); }
    [[nodiscard]] bool Visible() const { return fProgressControl && fProgressControl->Visible(); }
    [[nodiscard]] int ModalResult() const { return fProgressControl ? fProgressControl->ModalResult() : 0; }
    [[nodiscard]] int64_t Min() const noexcept { return fMin; }
    [[nodiscard]] int64_t Max() const noexcept { return fMax; }
    [[nodiscard]] int64_t Position() const noexcept { return fPos; }
    [[nodiscard]] bool Marquee() const noexcept { return fMarquee; }
    [[nodiscard]] const std::string& Text() const noexcept { return fRawText; }
    [[nodiscard]] const std::string& Message() const noexcept { return fRawMessage; }
    [[nodiscard]] const std::string& Header() const noexcept { return fRawHeader; }
    [[nodiscard]] const std::string& Caption() const noexcept { return fRawCaption; }
    [[nodiscard]] bool Cancelling() const noexcept { return fCancelling; }
    [[nodiscard]] std::string TimeCaption() const { return fTime.GetTimeCaption(fPos, fMax); }

private:
    friend class TcsProgressCallback;
    void ProcessCancel();
    // The call frame of a worker: the arguments go in, the main thread performs F_Index.
    bool Marshal(TcsProcedureIndex aIndex);
    void PerformFrame();
    void DoOpen(std::string_view aText, std::string_view aMessage, std::string_view aHeader, std::string_view aCaption,
                int64_t aMax);
    void DoNext(std::string_view aText, std::string_view aMessage, std::string_view aHeader, std::string_view aCaption,
                int64_t aIncrement);
    void DoSetMax(int64_t aMax);
    void DoAddMax(int64_t aMaxInc);
    void DoSetPos(int64_t aPos);
    void DoSetText(std::string_view aText, std::string_view aMessage, std::string_view aHeader, std::string_view aCaption);
    void DoClose();

    TcsProgressExec* fOwner = nullptr;
    TcsProcedureIndex F_Index = piOpen;
    std::string F_Text, F_Message, F_Header, F_Caption;
    int64_t F_Increment = 0, F_Max = 0, F_MaxInc = 0, F_Pos = 0;
    std::unique_ptr<TcsProgressCallback> fCallback;
    std::unique_ptr<TcsProgressControl> fProgressControl;
    uint32_t fLastTickCount = 0;
    std::atomic<bool> fCancelling{false};
    std::atomic<bool> fCancelled{false};
    std::string fRawText, fRawMessage, fRawHeader, fRawCaption;
    int64_t fMin = 0, fMax = 0, fPos = 0;
    bool fMarquee = false;
    TcsProgressTime fTime;
};

// A job on a thread of its own: the worker runs OnExecute, what it raises is kept in
// FatalException, and OnFinish runs on the main thread.
class TcsProgressThread {
public:
    using TProc = std::function<void(TcsProgressExec&)>;
    TcsProgressThread(TcsProgressExec& aOwner, TProc aOnExecute, TProc aOnFinish, std::function<void()> aOnTerminate);
    ~TcsProgressThread();
    TcsProgressThread(const TcsProgressThread&) = delete;
    TcsProgressThread& operator=(const TcsProgressThread&) = delete;

    void Start();
    void Terminate() noexcept { fTerminated = true; }
    [[nodiscard]] bool Terminated() const noexcept { return fTerminated; }
    [[nodiscard]] bool Finished() const noexcept { return fFinished; }
    // Waits for the end, serving the calls the worker hands to the main thread meanwhile.
    void WaitFor();
    [[nodiscard]] std::exception_ptr FatalException() const { return FFatalException; }
    [[nodiscard]] std::thread::id ThreadId() const noexcept { return fId; }

private:
    void Execute();

    TcsProgressExec& FOwner;
    TProc FOnExecute, FOnFinish;
    std::function<void()> fOnTerminate;
    std::exception_ptr FFatalException;
    std::atomic<bool> fTerminated{false}, fFinished{false};
    std::thread::id fId;
    std::thread fThread;
};

// The worker this thread is, when it is one.
TcsProgressThread* CurrentProgressThread() noexcept;

class TcsProgressExec {
public:
    using TProc = TcsProgressThread::TProc;
    TcsProgressExec();
    ~TcsProgressExec();
    TcsProgressExec(const TcsProgressExec&) = delete;
    TcsProgressExec& operator=(const TcsProgressExec&) = delete;

    // With ThreadEnabled the job runs on a worker; without, OnExecute and OnFinish run here.
    void Execute(bool aForceCancel = false);
    // Tells the worker to stop, lets go of it and closes the progress.
    void Cancel();
    [[nodiscard]] TcsProgressThread* Thread() const noexcept { return FThread; }
    [[nodiscard]] TcsProgress& Progress() noexcept { return *FProgress; }
    // Waits for every worker this object started.
    void WaitFor();

    bool ThreadEnabled = false;
    TProc OnExecute, OnFinish;

private:
    TcsProgressThread* FThread = nullptr;
    std::vector<std::unique_ptr<TcsProgressThread>> fThreads;
    std::unique_ptr<TcsProgress> FProgress;
};

// The other side of the callback socket: what a process that drives someone else's bar
// calls. Each call answers 1 while the bar is not cancelled and 0 once it is; -1 when the
// connection is gone.
class TcsProgressRemote {
public:
    // Connects to the socket GetCallbackWnd named; raises Exception when it cannot.
    explicit TcsProgressRemote(const std::string& aName);
    ~TcsProgressRemote();
    TcsProgressRemote(const TcsProgressRemote&) = delete;
    TcsProgressRemote& operator=(const TcsProgressRemote&) = delete;

    int Open(int64_t aMax);
    int Next(int64_t aIncrement = 1);
    int Close();
    int AddMax(int64_t aMaxInc);
    // Kind 1 Text, 2 Message, 3 Header, 4 Caption, 5 the callback result; aText in UTF-8, sent
    // in the 8-bit code page.
    int SetText(int aKind, std::string_view aText);
    // The raw frame: message number, wParam, lParam, and the block of a copy-data message.
    int Send(uint32_t aMessage, uint32_t aWParam, int64_t aLParam, std::string_view aBlock = {});

private:
    int fSocket = -1;
};

// Whether the process has ended; aExitCode gets its code when it can be read (a child's
// exit status; 128 and the signal for one that was killed), else stays empty.
bool ProcessEnded(int aProcessId, std::optional<int>& aExitCode);
// The modal wait of a view: runs aHandleOne (one round of the view's own events, answering a
// result the view set, such as its Cancel button, else 0) and serves
// the callback socket until the process ends or aTerminating says the application goes down.
// 1 when the process ended with a code of 0 or less or one that cannot be read; 2 otherwise.
int ModalWaitForProcess(TcsProgress& aProgress, int aProcessId, const std::function<int()>& aHandleOne,
                        const std::function<bool()>& aTerminating);

// The numbers of the frames on the callback socket.
inline constexpr uint32_t kProgressMessage = 11025;  // the private message; also the copy-data tag
inline constexpr uint32_t kCopyDataMessage = 74;     // the copy-data message

}  // namespace tmi
