// The progress window offscreen: its parts, the task windows it disables, the marquee, the
// question on cancel; a job on a worker thread whose calls reach the window on the main
// thread; and another process driving the bar over the callback socket, with ShowModal's
// result for each way that process ends.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QThread>
#include <QTimer>
#include <atomic>
#include <memory>

#include "../offscreen_application.h"
#include "csProgressForm.h"
#include "csSync.h"

using namespace tmi;

extern char** environ;

namespace {

std::string S(const QString& aText) { return aText.toUtf8().toStdString(); }

TcsProgressForm* FormOf(TcsProgress& aProgress) {
    auto* control = dynamic_cast<TcsProgressFormControl*>(aProgress.Control());
    return control ? control->Form() : nullptr;
}

class ProgressForm : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        test::OffscreenApplication::Start();
        SetMainThread();
        UseProgressForm();
    }
    static void TearDownTestSuite() { test::OffscreenApplication::Stop(); }

    // Starts the driver against the progress's socket.
    static pid_t Drive(TcsProgress& aProgress, const char* aMode) {
        const std::string socket = aProgress.GetCallbackWnd();
        const char* args[] = {TM_PROGRESS_DRIVER, socket.c_str(), aMode, nullptr};
        pid_t pid = 0;
        EXPECT_EQ(posix_spawn(&pid, TM_PROGRESS_DRIVER, nullptr, nullptr, const_cast<char**>(args), environ), 0);
        return pid;
    }
};

}  // namespace

TEST_F(ProgressForm, PartsTaskWindowsAndMarquee) {
    QWidget other;
    other.show();
    {
        TcsProgress p;
        p.TickCount = [] {
            static uint32_t t = 0;
            return t += 200;  // every call refreshes
        };
        p.Open("50 % %p", "Сообщение", "Заголовок", "Подпись", 200);
        TcsProgressForm* form = FormOf(p);
        ASSERT_NE(form, nullptr);
        EXPECT_TRUE(form->isVisible());
        EXPECT_FALSE(other.isEnabled());  // the job's pumping reaches nothing else
        p.SetPos(100);
        p.Cancelled();
        EXPECT_EQ(S(form->windowTitle()), "Подпись");
        EXPECT_EQ(S(form->HeaderLabel->text()), "Заголовок");
        EXPECT_TRUE(form->HeaderLabel->font().bold());
        EXPECT_EQ(S(form->MessageLabel->text()), "Сообщение");
        // The text inside the bar as it stands, placeholders of the bar's own included.
        EXPECT_EQ(S(form->ProgressBar->text().remove(QChar(0x200B))), "50 % %p");
        EXPECT_EQ(FormOf(p) ? dynamic_cast<TcsProgressFormControl*>(p.Control())->Text() : "", "50 % %p");
        EXPECT_EQ(form->ProgressBar->value(), 100);
        EXPECT_EQ(form->ProgressBar->maximum(), 200);
        p.SetMax(1);  // a marquee, not a bar of one step
        p.Cancelled();
        EXPECT_EQ(form->ProgressBar->maximum(), 0);
        p.SetMax(int64_t(1) << 40);  // beyond int: shown scaled
        p.SetPos(int64_t(1) << 39);
        p.Cancelled();
        EXPECT_NEAR(double(form->ProgressBar->value()) / form->ProgressBar->maximum(), 0.5, 0.01);
        p.Close();
        EXPECT_FALSE(form->isVisible());
        EXPECT_TRUE(other.isEnabled());
    }
}

TEST_F(ProgressForm, CancelAsksAndNoGoesOn) {
    TcsProgress p;
    p.AbortOnCancel = false;
    p.Open("", "", "", "Импорт", 10);
    TcsProgressForm* form = FormOf(p);
    ASSERT_NE(form, nullptr);
    std::vector<std::string> answers = {"No", "Yes"};
    std::string title;
    QTimer timer;
    timer.setInterval(5);
    QObject::connect(&timer, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            title = S(box->windowTitle());
            EXPECT_EQ(S(box->text()), "Вы хотите прервать выполнение?");
            box->done(answers.front() == "Yes" ? QMessageBox::Yes : QMessageBox::No);
            answers.erase(answers.begin());
        }
    });
    timer.start();
    form->CancelBtn->click();
    p.Next();  // the question, answered No: the job goes on
    EXPECT_FALSE(p.Cancelled());
    EXPECT_EQ(title, "Импорт");
    form->CancelBtn->click();
    p.Next();
    EXPECT_TRUE(p.Cancelled());
    EXPECT_EQ(p.Message(), "Выполняется отмена...");
    EXPECT_TRUE(answers.empty());
}

TEST_F(ProgressForm, AWorkersCallsReachTheWindowOnTheMainThread) {
    TcsProgressExec exec;
    exec.ThreadEnabled = true;
    std::atomic<bool> finishedOnMain{false};
    std::atomic<int> steps{0};
    exec.OnExecute = [&](TcsProgressExec& e) {
        TcsProgress& p = e.Progress();
        p.Open("", "", "Работа", "", 50);
        for (int i = 0; i < 50 && !p.Cancelled(); ++i) {
            p.Next("шаг " + std::to_string(i));
            ++steps;
        }
    };
    exec.OnFinish = [&](TcsProgressExec&) { finishedOnMain = IsMainThread(); };
    exec.Execute();
    ASSERT_NE(exec.Thread(), nullptr);
    exec.WaitFor();
    EXPECT_TRUE(finishedOnMain);
    EXPECT_EQ(steps, 50);
    EXPECT_EQ(exec.Thread(), nullptr);  // the worker let go of itself
    EXPECT_EQ(exec.Progress().Position(), 50);
    EXPECT_EQ(exec.Progress().Text(), "шаг 49");
    TcsProgressForm* form = FormOf(exec.Progress());
    ASSERT_NE(form, nullptr);
    EXPECT_EQ(form->thread(), QApplication::instance()->thread());

    // A cancel from the main thread stops the worker at its next test; what it raised stays.
    TcsProgressExec stopping;
    stopping.ThreadEnabled = true;
    std::atomic<bool> running{false};
    stopping.OnExecute = [&](TcsProgressExec& e) {
        running = true;
        while (!e.Progress().Cancelled()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
        throw Exception("stopped");
    };
    stopping.Execute();
    TcsProgressThread* worker = stopping.Thread();
    while (!running) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    stopping.Cancel();
    EXPECT_EQ(stopping.Thread(), nullptr);
    worker->WaitFor();
    ASSERT_TRUE(worker->FatalException());
    EXPECT_THROW(std::rethrow_exception(worker->FatalException()), Exception);
}

TEST_F(ProgressForm, AnotherProcessDrivesTheBar) {
    TcsProgress p;
    p.TickCount = [] {
        static uint32_t t = 0;
        return t += 200;
    };
    EXPECT_THROW(p.ShowModal(::getpid()), Exception);  // before Open
    p.Open("", "", "", "", 0);
    const int result = p.ShowModal(Drive(p, "ok"));
    EXPECT_EQ(result, 1);
    EXPECT_EQ(p.Position(), 100);
    EXPECT_EQ(p.Max(), 100);
    EXPECT_EQ(p.Text(), "Шаг");
    EXPECT_EQ(p.Message(), "Сообщение");
    EXPECT_EQ(p.Header(), "Заголовок");
    EXPECT_EQ(p.Caption(), "Подпись");
    EXPECT_EQ(p.CallbackResult, "готово");
    EXPECT_FALSE(p.Cancelled());
    EXPECT_FALSE(FormOf(p)->isVisible());

    // A process that ends with a code above 0, or is killed: 2, the progress cancelled.
    for (const char* mode : {"fail", "killed"}) {
        TcsProgress q;
        q.Open("", "", "", "", 0);
        EXPECT_EQ(q.ShowModal(Drive(q, mode)), 2) << mode;
        EXPECT_TRUE(q.Cancelled()) << mode;
        EXPECT_EQ(q.Position(), 30) << mode;
    }
    // Nonsense on the socket drops that connection and nothing else.
    TcsProgress r;
    r.Open("", "", "", "", 0);
    EXPECT_EQ(r.ShowModal(Drive(r, "junk")), 1);
    // A process that is not ours and is gone: its code cannot be read.
    EXPECT_EQ(r.ShowModal(999999999), 1);
}

TEST_F(ProgressForm, CancelDuringTheWaitTellsTheOtherProcess) {
    TcsProgress p;
    p.AskOnCancel = false;
    p.Open("", "", "", "", 0);
    TcsProgressForm* form = FormOf(p);
    QTimer::singleShot(300, form->CancelBtn, &QPushButton::click);
    int pipefd[2];
    ASSERT_EQ(::pipe(pipefd), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipefd[1], 1);
    const std::string socket = p.GetCallbackWnd();
    const char* args[] = {TM_PROGRESS_DRIVER, socket.c_str(), "cancel", nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, TM_PROGRESS_DRIVER, &actions, nullptr, const_cast<char**>(args), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipefd[1]);
    EXPECT_EQ(p.ShowModal(pid), 2);
    EXPECT_TRUE(p.Cancelled());
    // The driver hears of the cancel in the answer to its next call.
    for (int i = 0; i < 500 && p.ProcessCallbacks(10); ++i) {
    }
    char out[32] = {};
    const ssize_t n = ::read(pipefd[0], out, sizeof out - 1);
    ::close(pipefd[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_EQ(std::string(out, n > 0 ? size_t(n) : 0), "cancelled\n");
}
