#include "runloop.h"

#include <QCoreApplication>
#include <QHash>
#include <QThread>
#include <QTimer>

#include <cmath>

namespace platform {

bool isMainThread() {
    auto* app = QCoreApplication::instance();
    return app != nullptr && QThread::currentThread() == app->thread();
}

namespace {

int toMilliseconds(double seconds) {
    if (!(seconds > 0)) {
        return 0;
    }
    const double ms = std::ceil(seconds * 1000.0);
    return ms > 2147483647.0 ? 2147483647 : static_cast<int>(ms);
}

// Pending performAfter requests, grouped by target. Lives on the main thread.
class PerformRegistry : public QObject {
  public:
    static PerformRegistry& instance() {
        // Owned by the application object, recreated if a test builds a new one.
        static QPointer<PerformRegistry> registry;
        if (registry.isNull()) {
            registry = new PerformRegistry(QCoreApplication::instance());
        }
        return *registry;
    }

    void add(const QObject* target, double seconds, std::function<void()> work) {
        auto* timer = new QTimer(this);
        timer->setSingleShot(true);
        timer->setTimerType(Qt::PreciseTimer);
        QPointer<const QObject> guard(target);
        connect(timer, &QTimer::timeout, this,
                [this, timer, target, guard, work = std::move(work)] {
                    remove(target, timer);
                    timer->deleteLater();
                    if (guard) {
                        work();
                    }
                });
        auto& list = pending_[target];
        if (list.isEmpty()) {
            connect(target, &QObject::destroyed, this, [this, target] { cancel(target); });
        }
        list.append(timer);
        timer->start(toMilliseconds(seconds));
    }

    void cancel(const QObject* target) {
        const auto timers = pending_.take(target);
        for (QTimer* timer : timers) {
            timer->stop();
            timer->deleteLater();
        }
        if (target != nullptr) {
            disconnect(target, &QObject::destroyed, this, nullptr);
        }
    }

    int count(const QObject* target) const { return pending_.value(target).size(); }

  private:
    using QObject::QObject;

    void remove(const QObject* target, QTimer* timer) {
        auto it = pending_.find(target);
        if (it == pending_.end()) {
            return;
        }
        it->removeOne(timer);
        if (it->isEmpty()) {
            pending_.erase(it);
            disconnect(target, &QObject::destroyed, this, nullptr);
        }
    }

    QHash<const QObject*, QList<QTimer*>> pending_;
};

}  // namespace

void performAfter(const QObject* target, double seconds, std::function<void()> work) {
    Q_ASSERT(isMainThread());
    if (target == nullptr || !work) {
        return;
    }
    PerformRegistry::instance().add(target, seconds, std::move(work));
}

void cancelPreviousPerformRequests(const QObject* target) {
    Q_ASSERT(isMainThread());
    PerformRegistry::instance().cancel(target);
}

int pendingPerformRequests(const QObject* target) {
    return PerformRegistry::instance().count(target);
}

void performOnMainThread(std::function<void()> work, bool waitUntilDone) {
    auto* app = QCoreApplication::instance();
    if (!work || app == nullptr) {
        return;
    }
    if (isMainThread()) {
        if (waitUntilDone) {
            work();
        } else {
            QMetaObject::invokeMethod(app, std::move(work), Qt::QueuedConnection);
        }
        return;
    }
    QMetaObject::invokeMethod(app, std::move(work),
                              waitUntilDone ? Qt::BlockingQueuedConnection : Qt::QueuedConnection);
}

std::unique_ptr<Timer> Timer::scheduled(double seconds, bool repeats, std::function<void()> work) {
    return std::unique_ptr<Timer>(new Timer(seconds, repeats, std::move(work)));
}

Timer::Timer(double seconds, bool repeats, std::function<void()> work)
    : timer_(new QTimer), work_(std::move(work)), repeats_(repeats) {
    timer_->setSingleShot(!repeats);
    timer_->setTimerType(Qt::PreciseTimer);
    QObject::connect(timer_, &QTimer::timeout, [this] { onTimeout(); });
    // A repeating timer with no interval would spin the loop; the phone clamps it the same way.
    timer_->start(repeats ? std::max(1, toMilliseconds(seconds)) : toMilliseconds(seconds));
}

Timer::~Timer() {
    if (destroyedFlag_ != nullptr) {
        *destroyedFlag_ = true;
    }
    timer_->stop();
    QObject::disconnect(timer_, nullptr, nullptr, nullptr);
    if (destroyedFlag_ != nullptr) {
        timer_->deleteLater();  // its timeout signal is still on the stack
    } else {
        delete timer_;
    }
}

void Timer::invalidate() {
    valid_ = false;
    timer_->stop();
}

void Timer::fire() {
    if (!valid_) {
        return;
    }
    if (!repeats_) {
        invalidate();
    }
    bool destroyed = false;
    bool* outer = destroyedFlag_;
    destroyedFlag_ = &destroyed;
    auto work = work_;  // the callback may destroy this timer
    work();
    if (!destroyed) {
        destroyedFlag_ = outer;
    } else if (outer != nullptr) {
        *outer = true;
    }
}

void Timer::onTimeout() {
    fire();
}

}  // namespace platform
