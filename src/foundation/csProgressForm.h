// The progress window: a bold header, the message, a bar with its text inside, the time
// caption and Cancel, under the progress's caption. While it is open every other top-level
// window of the application is disabled, so that the pumping of a job on the main thread
// reaches nothing but this window.
#pragma once

#include <QDialog>
#include <QPointer>
#include <vector>

#include "csProgress.h"

class QLabel;
class QProgressBar;
class QPushButton;

namespace tmi {

class TcsProgressForm : public QDialog {
public:
    explicit TcsProgressForm(QWidget* aParent = nullptr);

    QLabel* HeaderLabel;
    QLabel* MessageLabel;
    QProgressBar* ProgressBar;
    QLabel* TimeLabel;
    QPushButton* CancelBtn;
    std::function<void()> OnCancel;

protected:
    // Closing the window by its frame is a press of Cancel.
    void reject() override;
    void keyPressEvent(QKeyEvent* aEvent) override;
};

class TcsProgressFormControl : public TcsProgressControl {
public:
    explicit TcsProgressFormControl(TcsProgress& aOwner);
    ~TcsProgressFormControl() override;

    [[nodiscard]] int ModalResult() const override { return FModalResult; }
    void SetModalResult(int v) override { FModalResult = v; }
    [[nodiscard]] uintptr_t ParentHWND() const override { return fParentHWND; }
    void SetParentHWND(uintptr_t v) override;
    [[nodiscard]] std::string TimeCaption() const override;
    void SetTimeCaption(const std::string& v) override;
    [[nodiscard]] int64_t Min() const override { return fMin; }
    void SetMin(int64_t v) override;
    [[nodiscard]] int64_t Max() const override { return fMax; }
    void SetMax(int64_t v) override;
    [[nodiscard]] int64_t Position() const override { return fPosition; }
    void SetPosition(int64_t v) override;
    [[nodiscard]] std::string Text() const override;
    void SetText(const std::string& v) override;
    [[nodiscard]] std::string Message() const override;
    void SetMessage(const std::string& v) override;
    [[nodiscard]] std::string Header() const override;
    void SetHeader(const std::string& v) override;
    [[nodiscard]] std::string Caption() const override;
    void SetCaption(const std::string& v) override;
    [[nodiscard]] bool Marquee() const override { return fMarquee; }
    void SetMarquee(bool v) override;
    [[nodiscard]] bool TaskbarProgressActive() const override { return false; }
    void SetTaskbarProgressActive(bool) override {}
    [[nodiscard]] bool Visible() const override;
    void SetVisible(bool v) override { v ? Show() : Hide(); }

    void Show() override;
    void Hide() override;
    // No taskbar indicator on this platform.
    void LinkTaskbarProgress() override {}
    bool DoAskOnCancel() override;
    void EnableTaskWindows() override;
    void DisableTaskWindows() override;
    void ProcessMessages() override;
    int ShowModal(int aProcessId) override;
    void Note(const std::string& aMessage) override;

    [[nodiscard]] TcsProgressForm* Form() const noexcept { return FForm; }

private:
    void UpdateBar();

    QPointer<TcsProgressForm> FForm;
    std::vector<QPointer<QWidget>> FWindowList;
    int FModalResult = 0;
    uintptr_t fParentHWND = 0;
    int64_t fMin = 0, fMax = 0, fPosition = 0;
    bool fMarquee = false;
    bool fInModal = false;
};

// Makes the window the control a progress takes when it has none. The unit does this when
// it is loaded; a program that wants to be sure calls it.
void UseProgressForm();

}  // namespace tmi
