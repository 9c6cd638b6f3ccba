// The widget tests own their application, on Qt's offscreen platform: a test suite makes it
// in its SetUpTestSuite and lets it go in TearDownTestSuite.
#pragma once

#include <QApplication>
#include <memory>

namespace tmi::test {

class OffscreenApplication {
public:
    static void Start() {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "test";
        static char* argv[] = {name, nullptr};
        if (!QApplication::instance()) Holder() = std::make_unique<QApplication>(argc, argv);
    }
    static void Stop() { Holder().reset(); }

private:
    static std::unique_ptr<QApplication>& Holder() {
        static std::unique_ptr<QApplication> application;
        return application;
    }
};

}  // namespace tmi::test
