// The progress view of the command line: one line on stderr redrawn in place (header, text,
// a bar with percentage, the time caption), drawn only when stderr is a terminal. Ctrl-C
// asks to cancel through the same path as the Cancel button; a second Ctrl-C before the
// job has noticed ends the process.
#pragma once

#include "csProgress.h"

namespace tmi {

class TcsProgressTerminalControl : public TcsProgressControl {
public:
    explicit TcsProgressTerminalControl(TcsProgress& aOwner, int aFd = 2);
    ~TcsProgressTerminalControl() override;

    [[nodiscard]] std::string TimeCaption() const override { return fTimeCaption; }
    void SetTimeCaption(const std::string& v) override { fTimeCaption = v; }
    [[nodiscard]] int64_t Min() const override { return fMin; }
    void SetMin(int64_t v) override { fMin = v; }
    [[nodiscard]] int64_t Max() const override { return fMax; }
    void SetMax(int64_t v) override { fMax = v; }
    [[nodiscard]] int64_t Position() const override { return fPosition; }
    void SetPosition(int64_t v) override { fPosition = v; }
    [[nodiscard]] std::string Text() const override { return fText; }
    void SetText(const std::string& v) override { fText = v; }
    [[nodiscard]] std::string Message() const override { return fMessage; }
    void SetMessage(const std::string& v) override { fMessage = v; }
    [[nodiscard]] std::string Header() const override { return fHeader; }
    void SetHeader(const std::string& v) override { fHeader = v; }
    [[nodiscard]] std::string Caption() const override { return fCaption; }
    void SetCaption(const std::string& v) override { fCaption = v; }
    [[nodiscard]] bool Marquee() const override { return fMarquee; }
    void SetMarquee(bool v) override { fMarquee = v; }
    [[nodiscard]] bool Visible() const override { return fVisible; }
    void SetVisible(bool v) override { v ? Show() : Hide(); }

    void Show() override;
    void Hide() override;
    void ProcessMessages() override;
    void Note(const std::string& aMessage) override;

    // The line as it would be drawn at aWidth columns (without control sequences).
    [[nodiscard]] std::string Line(int aWidth) const;
    // What a Ctrl-C does, for tests: as if the signal had arrived.
    static void SimulateInterrupt();

private:
    void Draw();
    void Erase();

    int fFd;
    bool fTerminal;
    bool fVisible = false;
    bool fDrawn = false;
    unsigned fTurn = 0;
    std::string fTimeCaption, fText, fMessage, fHeader, fCaption;
    int64_t fMin = 0, fMax = 0, fPosition = 0;
    bool fMarquee = false;
};

// Installs the terminal view as the default control class of new progress objects. Without
// aDraw nothing is drawn, and Ctrl-C still asks to cancel.
void UseTerminalProgress(bool aDraw = true);

}  // namespace tmi
