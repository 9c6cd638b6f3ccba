// The message bus: order of delivery, Handled, queue order, re-entrancy, handler lifetime.
#include <gtest/gtest.h>

#include <thread>

#include "csMessage.h"

using namespace tmi;

namespace {

class RecordingHandler : public TcsMessageHandler {
public:
    RecordingHandler(TcsMessageManager& aManager, std::vector<std::string>& aLog, std::string aName, bool aHandles = false)
        : TcsMessageHandler(this, &aManager), fLog(aLog), fName(std::move(aName)), fHandles(aHandles) {}
    void ProcessMessage(const IcsMessage& aMessage) override {
        fLog.push_back(fName + ":" + std::to_string(aMessage->LParam));
        if (fHandles) aMessage->Handled = true;
    }

private:
    std::vector<std::string>& fLog;
    std::string fName;
    bool fHandles;
};

IcsMessage Msg(int64_t aLParam) { return std::make_shared<TcsMessage>(aLParam); }

}  // namespace

TEST(MessageBus, DeliversInRegistrationOrderAndStopsAtHandled) {
    TcsMessageManager bus;
    std::vector<std::string> log;
    RecordingHandler a(bus, log, "a"), b(bus, log, "b", true), c(bus, log, "c");
    bus.SendMessage(Msg(1));
    EXPECT_EQ(log, (std::vector<std::string>{"a:1", "b:1"}));

    // A handled posted message still leaves the queue.
    log.clear();
    bus.PostMessage(Msg(2));
    EXPECT_EQ(bus.QueueCount(), 1);
    bus.ProcessAllMessages();
    EXPECT_EQ(bus.QueueCount(), 0);
    EXPECT_EQ(log, (std::vector<std::string>{"a:2", "b:2"}));
}

TEST(MessageBus, PostedMessagesArriveInOrderAndThoseOfADeliveryInTheSameRun) {
    TcsMessageManager bus;
    std::vector<int64_t> seen;
    bus.RegisterProcedure([&](const IcsMessage& m) {
        seen.push_back(m->LParam);
        if (m->LParam == 2) bus.PostMessage(Msg(20));
        // A re-entrant run only takes note.
        bus.ProcessAllMessages();
    }, &seen);
    bus.PostMessage(Msg(1));
    bus.PostMessage(Msg(2));
    bus.PostMessage(Msg(3));
    bus.ProcessAllMessages();
    EXPECT_EQ(seen, (std::vector<int64_t>{1, 2, 3, 20}));
    EXPECT_FALSE(bus.InProcessAllMessages());
}

TEST(MessageBus, AHandlerUnregisteredDuringDeliveryIsNotCalled) {
    TcsMessageManager bus;
    std::vector<std::string> log;
    auto victim = std::make_unique<RecordingHandler>(bus, log, "victim");
    bus.UnregisterHandler(victim.get());
    bus.RegisterProcedure([&](const IcsMessage&) { log.push_back("first"); bus.UnregisterHandler(victim.get()); }, &log);
    bus.RegisterHandler(victim.get());
    bus.SendMessage(Msg(1));
    EXPECT_EQ(log, (std::vector<std::string>{"first"}));
}

TEST(MessageBus, HandlerLifetime) {
    TcsMessageManager bus, other;
    std::vector<std::string> log;
    {
        RecordingHandler h(bus, log, "h");
        EXPECT_EQ(bus.HandlerCount(), 1);
        other.RegisterHandler(&h);  // moves over
        EXPECT_EQ(bus.HandlerCount(), 0);
        EXPECT_EQ(other.HandlerCount(), 1);
        EXPECT_EQ(h.MessageManager(), &other);
    }
    EXPECT_EQ(other.HandlerCount(), 0);  // a freed handler unregisters itself
    int calls = 0;
    const int owner = 0;
    TcsMessageHandler* proc = bus.RegisterProcedure([&](const IcsMessage&) { ++calls; }, &owner);
    EXPECT_EQ(proc->Parent(), &owner);
    bus.RegisterProcedure([&](const IcsMessage&) { ++calls; }, &owner);
    bus.SendMessage(Msg(0));
    EXPECT_EQ(calls, 2);
    bus.UnregisterProcedure(&owner);
    EXPECT_EQ(bus.HandlerCount(), 0);
    bus.SendMessage(Msg(0));
    EXPECT_EQ(calls, 2);
}

TEST(MessageBus, ManagerGoneBeforeItsHandlers) {
    std::vector<std::string> log;
    auto bus = std::make_unique<TcsMessageManager>();
    RecordingHandler h(*bus, log, "h");
    bus.reset();
    EXPECT_EQ(h.MessageManager(), nullptr);  // told that its manager is gone
}

TEST(MessageBus, AbstractHandlerAndExceptionsPassToTheCaller) {
    TcsMessageManager bus;
    TcsMessageHandler plain(nullptr, &bus);
    EXPECT_THROW(bus.SendMessage(Msg(1)), Exception);
    bus.UnregisterHandler(&plain);
    bus.RegisterProcedure([](const IcsMessage&) { throw std::runtime_error("boom"); }, nullptr);
    bus.PostMessage(Msg(1));
    EXPECT_THROW(bus.ProcessAllMessages(), std::runtime_error);
    EXPECT_EQ(bus.QueueCount(), 0);
}

TEST(MessageBus, TimerModeDeliversOnThePump) {
    TcsMessageManager bus;
    bus.SetSleepValue(0);
    int calls = 0;
    bus.RegisterProcedure([&](const IcsMessage&) { ++calls; }, nullptr);
    EXPECT_FALSE(bus.Timer().Enabled());
    bus.PostMessage(Msg(1));
    EXPECT_TRUE(bus.Timer().Enabled());
    EXPECT_EQ(calls, 0);
    ASSERT_NE(bus.PlainTimer(), nullptr);
    EXPECT_TRUE(bus.PlainTimer()->Poll(true));
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(bus.Timer().Enabled());  // runs on idly
}

TEST(MessageBus, ThreadModeDeliversOnTheMainThread) {
    TcsMessageManager bus;
    bus.SetMode(mmThread);
    bus.SetSleepValue(5);
    std::thread::id deliveredOn;
    bool delivered = false;
    bus.RegisterProcedure([&](const IcsMessage&) {
        deliveredOn = std::this_thread::get_id();
        delivered = true;
    }, nullptr);
    bus.PostMessage(Msg(1));
    for (int i = 0; i < 2000 && !delivered; ++i) {
        bus.PlainTimer()->Poll();  // the main thread's pump serves the synchronised call
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_TRUE(delivered);
    EXPECT_EQ(deliveredOn, std::this_thread::get_id());
}

TEST(MessageBus, RegisteringAgainMovesAHandlerToTheEnd) {
    TcsMessageManager bus;
    std::vector<std::string> log;
    RecordingHandler a(bus, log, "a"), b(bus, log, "b");
    bus.RegisterHandler(&a);
    EXPECT_EQ(bus.HandlerCount(), 2);
    bus.SendMessage(Msg(1));
    EXPECT_EQ(log, (std::vector<std::string>{"b:1", "a:1"}));
}

// A pass asked for from inside a pass is not lost: the timer stays armed for it.
TEST(MessageBus, APassAskedForDuringAPassArmsTheTimer) {
    TcsMessageManager bus;
    int calls = 0;
    bus.RegisterProcedure([&](const IcsMessage&) {
        ++calls;
        bus.ProcessAllMessages();  // re-entrant: noted only
    }, nullptr);
    bus.PostMessage(Msg(1));
    bus.Timer().SetEnabled(false);
    bus.ProcessAllMessages();
    EXPECT_EQ(calls, 1);
    EXPECT_TRUE(bus.Timer().Enabled());
    bus.Timer().SetEnabled(false);
    bus.PostMessage(Msg(2));
    bus.Timer().SetEnabled(false);
    bus.SendMessage(Msg(3));  // outside a pass the inner call runs the queue at once
    EXPECT_EQ(calls, 3);
    EXPECT_FALSE(bus.Timer().Enabled());
}

// The thread of a dying manager may still ask for a delivery: no handler hears it.
TEST(MessageBus, NoHandlerRunsWhileTheManagerIsDestroyed) {
    std::atomic<int> calls{0};
    {
        TcsMessageManager bus;
        bus.SetMode(mmThread);
        bus.SetSleepValue(1);
        bus.RegisterProcedure([&](const IcsMessage&) { ++calls; }, nullptr);
        bus.PostMessage(Msg(1));
        // The thread now wakes every millisecond and waits for the main thread to deliver.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(calls, 0);
}
