// The message bus: small message objects passed to registered handlers, now on the
// caller's thread (SendMessage) or later on the main thread (PostMessage).
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "csCommon.h"

namespace tmi {

enum TcsMessageDirection : uint8_t { mdAction, mdAnswer };
enum TcsMessageManagerMode : uint8_t { mmThread, mmTimer };

class TcsMessage {
public:
    explicit TcsMessage(int64_t aLParam = 0, int32_t aWParam = 0, TcsMessageDirection aDirection = mdAction,
                        const void* aSender = nullptr)
        : Direction(aDirection), LParam(aLParam), WParam(aWParam), Sender(aSender) {}
    virtual ~TcsMessage() = default;
    [[nodiscard]] virtual std::string ClassName() const { return "TcsMessage"; }

    TcsMessageDirection Direction;
    int64_t LParam;
    int32_t WParam;
    bool Handled = false;
    const void* Sender;
    int ResultInt = 0;
};

// Messages are shared: the queue and every holder keep one alive.
using IcsMessage = std::shared_ptr<TcsMessage>;
using TcsProcessMessage = std::function<void(const IcsMessage&)>;

class TcsMessageManager;

class TcsMessageHandler {
public:
    // A nil manager means the global one; the handler registers itself there.
    explicit TcsMessageHandler(const void* aParent, TcsMessageManager* aManager = nullptr);
    virtual ~TcsMessageHandler();
    TcsMessageHandler(const TcsMessageHandler&) = delete;
    TcsMessageHandler& operator=(const TcsMessageHandler&) = delete;

    [[nodiscard]] const void* Parent() const noexcept { return fParent; }
    [[nodiscard]] TcsMessageManager* MessageManager() const noexcept { return fMessageManager; }
    // Abstract in the base: a handler without a procedure must override it.
    virtual void ProcessMessage(const IcsMessage& aMessage);

    TcsProcessMessage FProcessMessage;

private:
    friend class TcsMessageManager;
    const void* fParent;
    TcsMessageManager* fMessageManager = nullptr;
};

// What arms delayed delivery of posted messages on the main thread: a timer of the GUI's
// event loop, or the plain one that a pump or a test drives.
class IcsMessageTimer {
public:
    virtual ~IcsMessageTimer() = default;
    virtual void Start(int aIntervalMs) = 0;
    virtual void SetEnabled(bool aEnabled) = 0;
    [[nodiscard]] virtual bool Enabled() const = 0;
};

// The timer without an event loop: Poll delivers when it is enabled and its interval has
// passed (and runs calls that workers synchronise to the main thread).
class TcsPlainMessageTimer final : public IcsMessageTimer {
public:
    explicit TcsPlainMessageTimer(TcsMessageManager& aManager) : fManager(aManager) {}
    void Start(int aIntervalMs) override;
    void SetEnabled(bool aEnabled) override { fEnabled = aEnabled; }
    [[nodiscard]] bool Enabled() const override { return fEnabled; }
    // Returns whether anything was delivered; aForce ignores the interval.
    bool Poll(bool aForce = false);

private:
    TcsMessageManager& fManager;
    bool fEnabled = false;
    int fInterval = 100;
    int64_t fLastFire = 0;
};

class TcsMessageManager {
public:
    TcsMessageManager();
    virtual ~TcsMessageManager();
    TcsMessageManager(const TcsMessageManager&) = delete;
    TcsMessageManager& operator=(const TcsMessageManager&) = delete;

    void SendMessage(const IcsMessage& aMessage);
    void PostMessage(const IcsMessage& aMessage);
    // Delivers the oldest queued message.
    void ProcessMessage();
    // Delivers the message and takes it from the queue when it is there.
    void ProcessMessage(const IcsMessage& aMessage);
    // Empties the queue; a re-entrant call only takes note and returns.
    virtual void ProcessAllMessages();

    void RegisterHandler(TcsMessageHandler* aHandler);
    void UnregisterHandler(TcsMessageHandler* aHandler);
    // Wraps a procedure in a handler, owned by the manager, with aObject as its parent.
    TcsMessageHandler* RegisterProcedure(TcsProcessMessage aProcedure, const void* aObject);
    // Removes every handler whose parent, or which itself, is aObject, last first.
    void UnregisterProcedure(const void* aObject);
    void UnregisterAllHandlers();
    void BeginUpdate() {}
    void EndUpdate() {}

    [[nodiscard]] int HandlerCount() const noexcept { return static_cast<int>(fHandlers.size()); }
    [[nodiscard]] const std::vector<TcsMessageHandler*>& Handlers() const noexcept { return fHandlers; }
    [[nodiscard]] int QueueCount() const noexcept { return static_cast<int>(fMessages.size()); }
    [[nodiscard]] bool InProcessAllMessages() const noexcept { return fInProcessAllMessages; }
    [[nodiscard]] TcsMessageManagerMode Mode() const noexcept { return fMode; }
    void SetMode(TcsMessageManagerMode aMode) { fMode = aMode; }
    [[nodiscard]] int SleepValue() const noexcept { return fSleepValue; }
    void SetSleepValue(int aValue) { fSleepValue = aValue; }
    // The exception that ended the delivery thread, if any.
    [[nodiscard]] std::exception_ptr ThreadException() const { return fException; }

    // The timer; the plain one until a GUI installs its own.
    IcsMessageTimer& Timer();
    void SetTimer(std::unique_ptr<IcsMessageTimer> aTimer);
    // The plain timer, or nil when another is installed.
    TcsPlainMessageTimer* PlainTimer();

private:
    void StartThread();
    void StopThread();

    std::vector<TcsMessageHandler*> fHandlers;
    std::vector<std::unique_ptr<TcsMessageHandler>> fOwnedHandlers;
    std::deque<IcsMessage> fMessages;  // newest at the front, oldest at the back
    std::unique_ptr<IcsMessageTimer> fTimer;
    std::thread fThread;
    std::atomic<bool> fTerminated{false};
    std::atomic<bool> fThreadDone{false};
    std::exception_ptr fException;
    TcsMessageManagerMode fMode = mmTimer;
    int fSleepValue = 100;
    bool fInProcessAllMessages = false;
    bool fLastStateProcessAllMessages = false;
};

// The global bus, created on first use.
TcsMessageManager& GlobalMessageManager();

// Sets the wait cursor over a stretch of work; where there is no cursor, a plain message.
class TcsWaitCursorMessage : public TcsMessage {
public:
    explicit TcsWaitCursorMessage(bool aStart) : TcsMessage(aStart ? 1 : 0) {}
    [[nodiscard]] std::string ClassName() const override { return "TcsWaitCursorMessage"; }
};

}  // namespace tmi
