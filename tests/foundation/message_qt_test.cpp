// Posted messages delivered by Qt's event loop.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTimer>

#include "csMessageQt.h"

using namespace tmi;

TEST(MessageBusQt, PostedMessagesArriveThroughTheEventLoop) {
    TcsMessageManager bus;
    EXPECT_FALSE(UseQtMessageTimer(bus));  // no application yet
    int argc = 1;
    char name[] = "test";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    ASSERT_TRUE(UseQtMessageTimer(bus));
    bus.SetSleepValue(10);
    std::vector<int64_t> seen;
    bus.RegisterProcedure([&](const IcsMessage& m) {
        seen.push_back(m->LParam);
        if (seen.size() == 2) app.quit();
    }, nullptr);
    bus.PostMessage(std::make_shared<TcsMessage>(1));
    bus.PostMessage(std::make_shared<TcsMessage>(2));
    EXPECT_TRUE(seen.empty());
    QTimer::singleShot(5000, &app, [&] { app.quit(); });
    app.exec();
    EXPECT_EQ(seen, (std::vector<int64_t>{1, 2}));
    EXPECT_TRUE(bus.Timer().Enabled());  // runs on idly
}
