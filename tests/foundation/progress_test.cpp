// Progress: kept values, marquee, throttled refresh, the cancel path and the time caption.
#include <gtest/gtest.h>

#include "csProgressTerminal.h"

using namespace tmi;

namespace {

// A view that counts refreshes and answers the cancel question as told.
class FakeControl : public TcsProgressControl {
public:
    explicit FakeControl(TcsProgress& aOwner) : TcsProgressControl(aOwner) {}
    bool Visible() const override { return fVisible; }
    void Show() override { fVisible = true; }
    void Hide() override { fVisible = false; }
    void SetText(const std::string& v) override { fText = v; }
    void SetMessage(const std::string& v) override { fMessage = v; }
    void SetPosition(int64_t v) override { fPosition = v; }
    void SetMarquee(bool v) override { fMarquee = v; }
    void SetTimeCaption(const std::string& v) override { fTimeCaption = v; }
    void ProcessMessages() override { ++fRefreshes; }
    bool DoAskOnCancel() override {
        ++fQuestions;
        if (fPressAgainWhileAsking && OnCancel) OnCancel();
        return fAnswer;
    }
    bool fVisible = false, fMarquee = false, fAnswer = true, fPressAgainWhileAsking = false;
    int fRefreshes = 0, fQuestions = 0;
    int64_t fPosition = 0;
    std::string fText, fMessage, fTimeCaption;
};

struct Fixture {
    uint32_t fTick = 1000;
    FakeControl* fControl = nullptr;
    TcsProgress fProgress;
    Fixture() {
        fProgress.TickCount = [this] { return fTick; };
        fProgress.ControlClass = [this](TcsProgress& p) {
            auto c = std::make_unique<FakeControl>(p);
            fControl = c.get();
            return c;
        };
    }
};

}  // namespace

TEST(Progress, MaxPositionAndMarquee) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("text", "msg", "head", "", 100);
    EXPECT_TRUE(f.fControl->Visible());
    EXPECT_EQ(p.Caption(), "Выполняется");
    EXPECT_EQ(p.Max(), 100);
    EXPECT_FALSE(p.Marquee());
    p.SetPos(40);
    EXPECT_EQ(p.Position(), 40);
    p.SetPos(101);  // above the maximum: not stored
    p.SetPos(-1);
    EXPECT_EQ(p.Position(), 40);
    p.Next(70);  // Next does not clamp
    EXPECT_EQ(p.Position(), 110);
    p.SetMax(-5);  // a negative maximum steps the position
    EXPECT_EQ(p.Position(), 111);
    EXPECT_EQ(p.Max(), 100);
    p.SetMax(1);  // a marquee, not a bar of one step
    EXPECT_TRUE(p.Marquee());
    EXPECT_EQ(p.Max(), 100);
    p.AddMax(-99);
    EXPECT_TRUE(p.Marquee());
    p.AddMax(10);
    EXPECT_FALSE(p.Marquee());
    p.SetText("", "other");
    EXPECT_EQ(p.Text(), "text");  // empty leaves the value
    EXPECT_EQ(p.Message(), "other");
    p.Close();
    EXPECT_FALSE(f.fControl->Visible());
}

TEST(Progress, RefreshIsThrottledTo100msAndAChangedTextForcesIt) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("a", "", "", "", 1000);
    const int start = f.fControl->fRefreshes;
    for (int i = 0; i < 50; ++i) p.Next();
    EXPECT_EQ(f.fControl->fRefreshes, start);  // no time passed
    f.fTick += 101;
    p.Next();
    EXPECT_EQ(f.fControl->fRefreshes, start + 1);
    EXPECT_EQ(f.fControl->fPosition, p.Position());
    p.Next();
    EXPECT_EQ(f.fControl->fRefreshes, start + 1);
    p.Next("b");  // a new text is never stale
    EXPECT_EQ(f.fControl->fRefreshes, start + 2);
    EXPECT_EQ(f.fControl->fText, "b");
}

TEST(Progress, ConfirmedCancelRaisesTheSilentAbort) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("", "", "", "", 10);
    f.fControl->OnCancel();  // the button
    EXPECT_TRUE(p.Cancelling());
    EXPECT_THROW(p.Next(), EAbort);
    EXPECT_EQ(f.fControl->fQuestions, 1);
    EXPECT_EQ(p.Message(), "Выполняется отмена...");
    EXPECT_TRUE(p.Marquee());
    EXPECT_TRUE(p.Cancelled());
    // Open clears both states.
    p.Open("", "", "", "", 10);
    EXPECT_FALSE(p.Cancelled());
}

TEST(Progress, ANoAnswerGoesBackAndASecondPressIsAbsorbed) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("", "", "", "", 10);
    f.fControl->fAnswer = false;
    f.fControl->fPressAgainWhileAsking = true;
    f.fControl->OnCancel();
    EXPECT_NO_THROW(p.Next());
    EXPECT_FALSE(p.Cancelled());
    // The press during the question came after the flag was cleared; it is processed once more.
    EXPECT_TRUE(p.Cancelling());
    f.fControl->fPressAgainWhileAsking = false;
    EXPECT_NO_THROW(p.Next());
    EXPECT_FALSE(p.Cancelling());
    EXPECT_EQ(f.fControl->fQuestions, 2);
}

TEST(Progress, WithoutAskingOrAbortingTheJobReadsCancelled) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.AskOnCancel = false;
    p.AbortOnCancel = false;
    p.Open("", "", "", "", 10);
    p.RequestCancel();
    EXPECT_NO_THROW(p.Next());
    EXPECT_TRUE(p.Cancelled());
    EXPECT_EQ(f.fControl->fQuestions, 0);

    Fixture g;
    g.fProgress.AutoProcessCancel = true;
    g.fProgress.AbortOnCancel = false;
    g.fProgress.Open("", "", "", "", 10);
    g.fControl->OnCancel();
    EXPECT_TRUE(g.fProgress.Cancelled());  // processed at once
}

TEST(Progress, TimeCaptionAfterTenSeconds) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("", "", "", "", 100);
    p.SetPos(50);
    f.fTick += 9999;
    EXPECT_EQ(p.TimeCaption(), "");
    f.fTick += 1;
    EXPECT_EQ(p.TimeCaption(), "Прошло: 10 сек. Осталось: 10 сек.");
    p.SetPos(100);
    EXPECT_EQ(p.TimeCaption(), "Прошло: 10 сек. Осталось совсем немного...");
    f.fTick += 3600000;
    p.SetPos(10);
    EXPECT_EQ(p.TimeCaption(), "Прошло: 1 ч 10 сек. Осталось: 9 ч 1 мин 30 сек.");
    p.SetMax(200);  // a new phase starts the clock again
    p.SetPos(10);
    EXPECT_EQ(p.TimeCaption(), "");
}

TEST(Progress, WithoutAViewAndShowModalBeforeOpen) {
    TcsProgress p;
    p.ControlClass = nullptr;
    DefaultProgressControlClass() = nullptr;
    EXPECT_THROW(p.ShowModal(1), Exception);
    try {
        p.ShowModal(1);
    } catch (const Exception& e) {
        EXPECT_STREQ(e.what(), "Требуется сначала вызвать функцию TcsProgress.Open.");
    }
    p.Open("t", "", "", "", 5);
    p.Next();
    EXPECT_FALSE(p.Cancelled());
    EXPECT_EQ(p.Control(), nullptr);
}

TEST(Progress, TerminalViewAndInterrupt) {
    TcsProgress p;
    p.AskOnCancel = true;  // the terminal does not ask
    p.ControlClass = [](TcsProgress& o) { return std::make_unique<TcsProgressTerminalControl>(o, -1); };
    uint32_t tick = 0;
    p.TickCount = [&] { return tick; };
    p.Open("Чтение", "", "Импорт", "", 200);
    p.SetPos(50);
    tick += 200;
    p.Next();
    auto* view = static_cast<TcsProgressTerminalControl*>(p.Control());
    EXPECT_EQ(view->Line(200), "Импорт: Чтение [#####...............] 25%");
    EXPECT_EQ(view->Line(6), "Импорт");
    TcsProgressTerminalControl::SimulateInterrupt();
    tick += 200;
    EXPECT_NO_THROW(p.Next());  // the refresh notices Ctrl-C: the cancel is asked for
    EXPECT_TRUE(p.Cancelling());
    EXPECT_THROW(p.Next(), EAbort);
    p.Close();
}

TEST(CommonText, TimeAndSize) {
    EXPECT_EQ(TimeText(0), "");
    EXPECT_EQ(TimeText(90061005), "1 д 1 ч 1 мин 1 сек 5 мс");
    EXPECT_EQ(TimeText(90061005, false), "1 д 1 ч 1 мин 1 сек");
    EXPECT_EQ(SizeText(512), "512 Б");
    EXPECT_EQ(SizeText(12 * 1024 + 5), "12 КБ");
    EXPECT_EQ(SizeText(3565158), "3.4 МБ");
    EXPECT_EQ(SizeText(1288490189), "1.2 GБ");
    EXPECT_EQ(FloatToStr(0.1), "0.1");
    EXPECT_EQ(FloatToStr(392781.63), "392781.63");
    EXPECT_EQ(FloatToStr(1.0 / 3.0), "0.333333333333333");
    EXPECT_EQ(FloatToFixed(2.5, 0), "3");
    EXPECT_EQ(FloatToFixed(-2.5, 0), "-3");
    const std::string guid = NewGUIDString();
    EXPECT_EQ(guid.size(), 38u);
    EXPECT_EQ(guid.front(), '{');
    EXPECT_NE(guid, NewGUIDString());
}

// A No ends the cancel processing: the view is not refreshed on its way back.
TEST(Progress, ANoAnswerRefreshesNothing) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("", "", "", "", 10);
    f.fControl->fAnswer = false;
    f.fTick += 1000;  // a refresh would be due
    const int before = f.fControl->fRefreshes;
    f.fControl->OnCancel();
    p.SetPos(3);
    EXPECT_EQ(f.fControl->fRefreshes, before);
    EXPECT_EQ(f.fControl->fQuestions, 1);
}

// Each text that changes runs the cancel processing: a press asked about at the first,
// answered No, is asked about again when it comes back during the same call.
TEST(Progress, EachChangedTextProcessesTheCancel) {
    Fixture f;
    TcsProgress& p = f.fProgress;
    p.Open("", "", "", "", 10);
    f.fControl->fAnswer = false;
    f.fControl->fPressAgainWhileAsking = true;
    f.fControl->OnCancel();
    p.SetText("text", "message", "header", "caption");
    EXPECT_EQ(f.fControl->fQuestions, 4);  // one question per changed text
    f.fControl->fPressAgainWhileAsking = false;
    p.SetText("text", "message", "header", "caption");  // nothing changed: nothing processed
    EXPECT_EQ(f.fControl->fQuestions, 4);
}

TEST(Progress, ANoteWithoutAViewReachesTheModalMessage) {
    std::vector<std::string> shown;
    ModalMessageHandler() = [&](const std::string& aText) { shown.push_back(aText); };
    TcsProgress p;
    p.ControlClass = nullptr;
    DefaultProgressControlClass() = nullptr;
    p.Note("Файл пропущен");
    ModalMessageHandler() = nullptr;
    EXPECT_EQ(shown, (std::vector<std::string>{"Файл пропущен"}));
}
