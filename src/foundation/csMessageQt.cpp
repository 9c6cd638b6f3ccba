#include "csMessageQt.h"

#include <QCoreApplication>
#include <QTimer>

#include "csSync.h"

namespace tmi {

namespace {

class QtMessageTimer final : public IcsMessageTimer {
public:
    explicit QtMessageTimer(TcsMessageManager& aManager) {
        fTimer.setSingleShot(false);
        QObject::connect(&fTimer, &QTimer::timeout, [&aManager] {
            CheckSynchronize();
            aManager.ProcessAllMessages();
        });
    }
    void Start(int aIntervalMs) override {
        fTimer.setInterval(aIntervalMs);
        fTimer.start();
    }
    void SetEnabled(bool aEnabled) override {
        if (aEnabled == fTimer.isActive()) return;
        if (aEnabled)
            fTimer.start();
        else
            fTimer.stop();
    }
    [[nodiscard]] bool Enabled() const override { return fTimer.isActive(); }

private:
    QTimer fTimer;
};

}  // namespace

bool UseQtMessageTimer(TcsMessageManager& aManager) {
    if (!QCoreApplication::instance()) return false;
    SetMainThread();
    aManager.SetTimer(std::make_unique<QtMessageTimer>(aManager));
    return true;
}

}  // namespace tmi
