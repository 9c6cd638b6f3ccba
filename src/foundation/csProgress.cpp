#include "csProgress.h"

#include <chrono>
#include <cmath>

#include "csProgressCallback.h"
#include "csSync.h"

namespace tmi {

namespace {

uint32_t SystemTick() {
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count());
}

constexpr const char* kCancelling = "Выполняется отмена...";

}  // namespace

TcsProgressControlClass& DefaultProgressControlClass() {
    static TcsProgressControlClass cls;
    return cls;
}

std::string& ApplicationTitle() {
    static std::string title;
    return title;
}

std::string TcsProgressTime::GetTimeCaption(int64_t aPos, int64_t aMax) const {
    const uint32_t elapsed = Elapsed();
    if (elapsed < 10000 || aPos <= 0 || aMax <= 0 || aMax < aPos) return {};
    const double rest = std::round(static_cast<double>(elapsed) / static_cast<double>(aPos) * static_cast<double>(aMax - aPos));
    std::string tail;
    if (rest >= 1000)
        tail = " Осталось: " + TimeText(static_cast<uint64_t>(rest), false) + ".";
    else
        tail = " Осталось совсем немного...";
    return "Прошло: " + TimeText(elapsed, false) + "." + tail;
}

TcsProgress::TcsProgress(TcsProgressExec* aOwner)
    : TickCount(SystemTick), fOwner(aOwner), fTime([this] { return TickCount(); }) {}

TcsProgressThread* TcsProgress::Thread() const noexcept { return fOwner ? fOwner->Thread() : nullptr; }

bool TcsProgress::Marshal(TcsProcedureIndex aIndex) {
    // A progress of an exec object is touched only by the main thread, also after the exec
    // let go of a worker that is still running.
    if (!fOwner || IsMainThread()) return false;
    F_Index = aIndex;
    Synchronize([this] { PerformFrame(); });
    return true;
}

void TcsProgress::PerformFrame() {
    switch (F_Index) {
        case piOpen: DoOpen(F_Text, F_Message, F_Header, F_Caption, F_Max); break;
        case piNext: DoNext(F_Text, F_Message, F_Header, F_Caption, F_Increment); break;
        case piSetPos: DoSetPos(F_Pos); break;
        case piSetMax: DoSetMax(F_Max); break;
        case piSetText: DoSetText(F_Text, F_Message, F_Header, F_Caption); break;
        case piClose: DoClose(); break;
        case piAddMax: DoAddMax(F_MaxInc); break;
    }
}

void TcsProgress::Open(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                       std::string_view aCaption, int64_t aMax) {
    F_Text = aText, F_Message = aMessage, F_Header = aHeader, F_Caption = aCaption, F_Max = aMax;
    if (!Marshal(piOpen)) DoOpen(aText, aMessage, aHeader, aCaption, aMax);
}

void TcsProgress::Next(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                       std::string_view aCaption, int64_t aIncrement) {
    F_Text = aText, F_Message = aMessage, F_Header = aHeader, F_Caption = aCaption, F_Increment = aIncrement;
    if (!Marshal(piNext)) DoNext(aText, aMessage, aHeader, aCaption, aIncrement);
}

void TcsProgress::SetMax(int64_t aMax) {
    F_Max = aMax;
    if (!Marshal(piSetMax)) DoSetMax(aMax);
}

void TcsProgress::AddMax(int64_t aMaxInc) {
    F_MaxInc = aMaxInc;
    if (!Marshal(piAddMax)) DoAddMax(aMaxInc);
}

void TcsProgress::SetPos(int64_t aPos) {
    F_Pos = aPos;
    if (!Marshal(piSetPos)) DoSetPos(aPos);
}

void TcsProgress::SetText(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                          std::string_view aCaption) {
    F_Text = aText, F_Message = aMessage, F_Header = aHeader, F_Caption = aCaption;
    if (!Marshal(piSetText)) DoSetText(aText, aMessage, aHeader, aCaption);
}

void TcsProgress::Close() {
    if (!Marshal(piClose)) DoClose();
}

TcsProgress::~TcsProgress() {
    if (fProgressControl) {
        fProgressControl->SetTaskbarProgressActive(false);
        fProgressControl->EnableTaskWindows();
        fProgressControl->Hide();
    }
}

void TcsProgress::DoOpen(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                         std::string_view aCaption, int64_t aMax) {
    fCancelling = false;
    fCancelled = false;
    const bool first = !fProgressControl;
    if (first) {
        fRawCaption = ApplicationTitle().empty() ? std::string("Выполняется") : ApplicationTitle();
        if (!ControlClass) ControlClass = DefaultProgressControlClass();
        if (ControlClass) {
            fProgressControl = ControlClass(*this);
            if (fProgressControl) {
                fProgressControl->DisableTaskWindows();
                fProgressControl->SetParentHWND(ParentHWND);
                fProgressControl->OnCancel = [this] { RequestCancel(); };
            }
        }
    }
    DoSetText(aText, aMessage, aHeader, aCaption);
    if (fProgressControl) {
        if (CanShowForm) {
            fProgressControl->Show();
            if (first) fProgressControl->LinkTaskbarProgress();
        } else {
            fProgressControl->Hide();
        }
    }
    DoSetMax(aMax);
    ProcessCancel();
}

void TcsProgress::DoNext(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                         std::string_view aCaption, int64_t aIncrement) {
    DoSetText(aText, aMessage, aHeader, aCaption);
    fPos += aIncrement;  // no clamping: the position may pass the maximum
    ProcessCancel();
}

void TcsProgress::DoSetMax(int64_t aMax) {
    if (aMax < 0) {
        ++fPos;
    } else if (aMax == 0 || aMax == 1) {
        fMarquee = true;
    } else {
        fMarquee = false;
        fMin = 0;
        fMax = aMax;
        fPos = 0;
    }
    fTime.Reset();
    if (fProgressControl) fProgressControl->SetTimeCaption({});
    ProcessCancel();
}

void TcsProgress::DoAddMax(int64_t aMaxInc) {
    fMax += aMaxInc;
    fMarquee = fMax == 0 || fMax == 1;
    ProcessCancel();
}

void TcsProgress::DoSetPos(int64_t aPos) {
    if (aPos >= 0 && aPos <= fMax) fPos = aPos;
    ProcessCancel();
}

void TcsProgress::DoSetText(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                            std::string_view aCaption) {
    // Order: caption, header, message, text; each change forces the next refresh and runs
    // the cancel processing of its own.
    auto take = [&](std::string_view aValue, std::string& aKept) {
        if (aValue.empty() || aValue == aKept) return;
        aKept = std::string(aValue);
        fLastTickCount = 0;
        ProcessCancel();
    };
    take(aCaption, fRawCaption);
    take(aHeader, fRawHeader);
    take(aMessage, fRawMessage);
    take(aText, fRawText);
}

void TcsProgress::Note(const std::string& aMessage) {
    if (fOwner && !IsMainThread()) {
        Synchronize([&] { Note(aMessage); });
        return;
    }
    // Without a view the notice goes to the modal message, not into nothing.
    if (fProgressControl)
        fProgressControl->Note(aMessage);
    else
        ShowModalMessage(aMessage);
}

void TcsProgress::DoClose() {
    if (!fProgressControl) return;
    fProgressControl->SetTaskbarProgressActive(false);
    fProgressControl->EnableTaskWindows();
    fProgressControl->Hide();
}

int TcsProgress::ShowModal(int aProcessId) {
    if (!fProgressControl) throw Exception("Требуется сначала вызвать функцию TcsProgress.Open.");
    const int result = fProgressControl->ShowModal(aProcessId);
    if (result == 2) {
        fCancelled = true;
        Close();
    }
    return result;
}

void TcsProgress::RequestCancel() {
    fCancelling = true;
    if (AutoProcessCancel) ProcessCancel();
}

void TcsProgress::ProcessCancel() {
    if (CanDoCancel && fCancelling) {
        // The flag goes first, so that a second press while the question is open is absorbed.
        fCancelling = false;
        // A No to the question ends the processing here: no refresh, no exception.
        if (AskOnCancel && fProgressControl && !fProgressControl->DoAskOnCancel()) return;
        DoSetText({}, kCancelling, {}, {});
        DoSetMax(0);
        if (TcsProgressThread* worker = Thread()) worker->Terminate();
        fCancelled = true;
    }
    if (Cancelled() && AbortOnCancel) throw EAbort();
}

bool TcsProgress::Cancelled() {
    // Only the main thread touches the view; a worker reads the flags.
    if (fOwner && !IsMainThread()) {
        const TcsProgressThread* self = CurrentProgressThread();
        return fCancelled || (self && self->Terminated());
    }
    TcsProgressThread* worker = Thread();
    if (fProgressControl && fProgressControl->Visible()) {
        const uint32_t now = TickCount();
        if (static_cast<uint32_t>(now - fLastTickCount) > 100) {
            fLastTickCount = now;
            TcsProgressControl& c = *fProgressControl;
            c.SetMin(fMin);
            c.SetPosition(fPos);
            c.SetMax(fMax);
            if (!fRawCaption.empty()) c.SetCaption(fRawCaption);
            if (!fRawHeader.empty()) c.SetHeader(fRawHeader);
            if (!fRawMessage.empty()) c.SetMessage(fRawMessage);
            c.SetText(fRawText);
            c.SetMarquee(fMarquee);
            c.SetTimeCaption(fTime.GetTimeCaption(fPos, fMax));
            c.ProcessMessages();
        }
    }
    return fCancelled || (worker && worker->Terminated());
}

}  // namespace tmi
