#include "csProgress.h"

#include <chrono>
#include <cmath>

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

TcsProgress::TcsProgress() : TickCount(SystemTick), fTime([this] { return TickCount(); }) {}

TcsProgress::~TcsProgress() {
    if (fProgressControl) {
        fProgressControl->SetTaskbarProgressActive(false);
        fProgressControl->EnableTaskWindows();
        fProgressControl->Hide();
    }
}

void TcsProgress::Open(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
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
    SetText(aText, aMessage, aHeader, aCaption);
    if (fProgressControl) {
        if (CanShowForm) {
            fProgressControl->Show();
            if (first) fProgressControl->LinkTaskbarProgress();
        } else {
            fProgressControl->Hide();
        }
    }
    SetMax(aMax);
    ProcessCancel();
}

void TcsProgress::Next(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
                       std::string_view aCaption, int64_t aIncrement) {
    SetText(aText, aMessage, aHeader, aCaption);
    fPos += aIncrement;  // no clamping: the position may pass the maximum
    ProcessCancel();
}

void TcsProgress::SetMax(int64_t aMax) {
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

void TcsProgress::AddMax(int64_t aMaxInc) {
    fMax += aMaxInc;
    fMarquee = fMax == 0 || fMax == 1;
    ProcessCancel();
}

void TcsProgress::SetPos(int64_t aPos) {
    if (aPos >= 0 && aPos <= fMax) fPos = aPos;
    ProcessCancel();
}

void TcsProgress::SetText(std::string_view aText, std::string_view aMessage, std::string_view aHeader,
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
    // Without a view the notice goes to the modal message, not into nothing.
    if (fProgressControl)
        fProgressControl->Note(aMessage);
    else
        ShowModalMessage(aMessage);
}

void TcsProgress::Close() {
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
        SetText({}, kCancelling);
        SetMax(0);
        fCancelled = true;
    }
    if (Cancelled() && AbortOnCancel) throw EAbort();
}

bool TcsProgress::Cancelled() {
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
    return fCancelled;
}

}  // namespace tmi
