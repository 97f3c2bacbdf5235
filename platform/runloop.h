// Deferred and cross-thread work on the main Qt event loop, and timers.
// Everything the ad client schedules ("next turn", retries, delayed releases) goes through here.
#pragma once

#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class QTimer;

namespace platform {

// True on the thread that created the application object (the main thread).
bool isMainThread();

// Runs `work` on a later turn of the main event loop after `seconds` (0 means the next turn).
// Never runs during the call. The request is tied to `target`: it is dropped if `target` is
// destroyed first or if cancelPreviousPerformRequests(target) is called. Main thread only.
void performAfter(const QObject* target, double seconds, std::function<void()> work);

// Drops every request made with performAfter for `target` that has not run yet.
void cancelPreviousPerformRequests(const QObject* target);

// Number of requests still pending for `target` (for tests and diagnostics).
int pendingPerformRequests(const QObject* target);

// Runs `work` on the main thread. On the main thread with `waitUntilDone` it runs at once;
// without waiting it is queued for a later turn. From another thread, `waitUntilDone` blocks the
// caller until the main thread has run it.
void performOnMainThread(std::function<void()> work, bool waitUntilDone);

// A one-shot or repeating timer on the main event loop. Destroying or invalidating it stops it;
// both are safe from inside its own callback.
class Timer {
  public:
    static std::unique_ptr<Timer> scheduled(double seconds, bool repeats,
                                            std::function<void()> work);
    ~Timer();

    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    void invalidate();
    bool isValid() const { return valid_; }
    bool repeats() const { return repeats_; }
    // Runs the work now; a one-shot timer is then invalid, a repeating one keeps its schedule.
    void fire();

  private:
    Timer(double seconds, bool repeats, std::function<void()> work);
    void onTimeout();

    QTimer* timer_ = nullptr;
    std::function<void()> work_;
    bool repeats_ = false;
    bool valid_ = true;
    // Set while the callback runs, so that destruction from inside it defers deleting the QTimer.
    bool* destroyedFlag_ = nullptr;
};

}  // namespace platform
