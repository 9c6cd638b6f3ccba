#include "csProgressTerminal.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>

#include "utf8.h"

namespace tmi {

namespace {

volatile sig_atomic_t gInterrupts = 0;
struct sigaction gPrevious {};
int gInstalled = 0;

void OnInterrupt(int) {
    gInterrupts = gInterrupts + 1;
    if (gInterrupts >= 2) {
        // The job has not noticed the first press: let the second one end the process.
        signal(SIGINT, SIG_DFL);
        raise(SIGINT);
    }
}

void Install() {
    if (gInstalled++ > 0) return;
    gInterrupts = 0;
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &gPrevious);
}

void Uninstall() {
    if (gInstalled == 0 || --gInstalled > 0) return;
    sigaction(SIGINT, &gPrevious, nullptr);
}

// The first aColumns characters of a UTF-8 text.
std::string Clip(const std::string& aText, int aColumns) {
    int columns = 0;
    size_t i = 0;
    while (i < aText.size() && columns < aColumns) {
        ++i;
        while (i < aText.size() && (static_cast<unsigned char>(aText[i]) & 0xC0) == 0x80) ++i;
        ++columns;
    }
    return aText.substr(0, i);
}

}  // namespace

TcsProgressTerminalControl::TcsProgressTerminalControl(TcsProgress& aOwner, int aFd)
    : TcsProgressControl(aOwner), fFd(aFd), fTerminal(isatty(aFd) != 0) {}

TcsProgressTerminalControl::~TcsProgressTerminalControl() { Hide(); }

void TcsProgressTerminalControl::Show() {
    if (fVisible) return;
    fVisible = true;
    Install();
}

void TcsProgressTerminalControl::Hide() {
    if (!fVisible) return;
    fVisible = false;
    Erase();
    Uninstall();
}

void TcsProgressTerminalControl::SimulateInterrupt() { gInterrupts = gInterrupts + 1; }

void TcsProgressTerminalControl::ProcessMessages() {
    if (gInterrupts > 0) {
        gInterrupts = 0;
        if (OnCancel) OnCancel();
    }
    Draw();
}

std::string TcsProgressTerminalControl::Line(int aWidth) const {
    std::string line;
    if (!fHeader.empty()) line += fHeader + ": ";
    line += fText.empty() ? fMessage : fText;
    const int barWidth = 20;
    std::string bar(barWidth, '.');
    std::string percent;
    if (fMarquee || fMax <= 0) {
        for (int i = 0; i < 4; ++i) bar[(fTurn + static_cast<unsigned>(i)) % barWidth] = '#';
    } else {
        const int64_t pos = fPosition < fMin ? fMin : (fPosition > fMax ? fMax : fPosition);
        const int pct = static_cast<int>((pos - fMin) * 100 / (fMax - fMin > 0 ? fMax - fMin : 1));
        for (int i = 0; i < barWidth * pct / 100; ++i) bar[static_cast<size_t>(i)] = '#';
        percent = " " + std::to_string(pct) + "%";
    }
    line += " [" + bar + "]" + percent;
    if (!fTimeCaption.empty()) line += " " + fTimeCaption;
    return Clip(line, aWidth);
}

void TcsProgressTerminalControl::Draw() {
    ++fTurn;
    if (!fTerminal || !fVisible) return;
    winsize size{};
    const int width = (ioctl(fFd, TIOCGWINSZ, &size) == 0 && size.ws_col > 1) ? size.ws_col - 1 : 79;
    const std::string out = "\r" + Line(width) + "\033[K";
    (void)!write(fFd, out.data(), out.size());
    fDrawn = true;
}

void TcsProgressTerminalControl::Erase() {
    if (!fTerminal || !fDrawn) return;
    static const char kErase[] = "\r\033[K";
    (void)!write(fFd, kErase, sizeof kErase - 1);
    fDrawn = false;
}

void TcsProgressTerminalControl::Note(const std::string& aMessage) {
    Erase();
    const std::string line = aMessage + "\n";
    (void)!write(fFd, line.data(), line.size());
}

void UseTerminalProgress(bool aDraw) {
    DefaultProgressControlClass() = [aDraw](TcsProgress& aOwner) {
        return std::make_unique<TcsProgressTerminalControl>(aOwner, aDraw ? 2 : -1);
    };
}

}  // namespace tmi
