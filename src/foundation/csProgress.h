// TcsProgress: what a long job reports through and asks whether it should stop. It keeps
// the values itself, shows them through an exchangeable view (TcsProgressControl), refreshes
// and pumps at most every 100 ms, and turns a press of Cancel into a state or an exception.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "csCommon.h"

namespace tmi {

class TcsProgress;

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
    TcsProgress();
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
    int ShowModal(int aProcessId);
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
    void ProcessCancel();

    std::unique_ptr<TcsProgressControl> fProgressControl;
    uint32_t fLastTickCount = 0;
    bool fCancelling = false;
    bool fCancelled = false;
    std::string fRawText, fRawMessage, fRawHeader, fRawCaption;
    int64_t fMin = 0, fMax = 0, fPos = 0;
    bool fMarquee = false;
    TcsProgressTime fTime;
};

}  // namespace tmi
