#include "ads/net/PXBClickTracker.h"

#include "ads/core/PXBConfiguration.h"
#include "ads/core/PXBRequestError.h"
#include "ads/stats/PXBStatistics.h"
#include "platform/ui/application.h"

#include <QApplication>

using platform::Error;

namespace {

// Trackings under way where the platform offers no background task to hold them.
int activeTrackingCount = 0;

// Only a widget application has the application object; a non-graphical process (a test, a
// tool) has no background tasks either.
platform::Application* applicationObject() {
    if (qobject_cast<QApplication*>(QCoreApplication::instance()) == nullptr) {
        return nullptr;
    }
    return platform::Application::sharedApplication();
}

}  // namespace

PXBClickTracker::PXBClickTracker(PXBClickTrackerDelegate* delegate) : delegate_(delegate) {}

PXBClickTracker::~PXBClickTracker() {
    reset();
}

bool PXBClickTracker::activeTrackings() {
    return activeTrackingCount != 0;
}

void PXBClickTracker::trackURL(const QUrl& url) {
    if (url.isEmpty()) {
        return;
    }
    reset();
    beginBackgroundTask();
    tracker_ = std::make_unique<PXBCachedFile>(static_cast<PXBCachedFileDelegate*>(this), url);
    tracker_->setKeepsBody(false);
    // The ad response names the URLs, so anything the ad's author likes: the user's router or a
    // service on this machine included. Only an ad server on the local network itself (someone
    // developing ads) may send its trackers there.
    tracker_->setAllowsLocalNetwork(PXBConfiguration::adServerIsOnLocalNetwork());
    tracker_->validate();
}

QUrl PXBClickTracker::trackingURL() const {
    return tracker_ ? tracker_->httpDestinationURL() : QUrl();
}

void PXBClickTracker::reset() {
    hasTracked_ = false;
    if (tracker_) {
        // Detached first: the abandoned fetch must not report into the next one. The cached
        // file may be in one of its own callbacks; it is built to survive its deletion there.
        tracker_->setDelegate(nullptr);
        tracker_->invalidate();
        tracker_.reset();
    }
    endBackgroundTask();
}

void PXBClickTracker::beginBackgroundTask() {
    platform::Application* app = applicationObject();
    if (app != nullptr && app->isMultitaskingSupported()) {
        const std::weak_ptr<void> alive = lifetimeToken();
        backgroundTaskID_ = app->beginBackgroundTaskWithExpirationHandler([this, alive] {
            if (!alive.expired()) {
                reset();
            }
        });
        if (backgroundTaskID_ != platform::Application::kInvalidBackgroundTask) {
            return;
        }
    }
    ++activeTrackingCount;
}

void PXBClickTracker::endBackgroundTask() {
    if (backgroundTaskID_ != platform::Application::kInvalidBackgroundTask) {
        if (platform::Application* app = applicationObject()) {
            app->endBackgroundTask(backgroundTaskID_);
        }
        backgroundTaskID_ = platform::Application::kInvalidBackgroundTask;
    } else {
        // The count is the process's, not this tracker's: every end lowers it, an idle tracker's
        // reset too, so it errs towards "nothing running" and the opener never waits for long.
        activeTrackingCount = std::max(0, activeTrackingCount - 1);
    }
}

// The delegate may destroy this tracker, or start it on another URL, from the calls below: each
// one is the last thing that touches the tracker.

void PXBClickTracker::cachedFileDownloadDidEnd(PXBCachedFile* file) {
    if (hasTracked_) {
        return;
    }
    hasTracked_ = true;
    PXBStatistics::sharedStatistics().addClickTrackingURL(file->sourceURL());
    endBackgroundTask();
    const QUrl url = trackingURL();
    if (PXBClickTrackerDelegate* delegate = delegate_.get()) {
        delegate->trackerDidRedirect(this, url);
    }
}

void PXBClickTracker::cachedFileDownloadDidFail(PXBCachedFile*, const Error& error) {
    if (hasTracked_) {
        return;  // a stopped redirect's failure follows its success
    }
    hasTracked_ = true;
    endBackgroundTask();
    if (PXBClickTrackerDelegate* delegate = delegate_.get()) {
        delegate->trackerDidFailWithError(this, error);
    }
}

Error PXBClickTracker::cachedFileShouldRedirectToURL(PXBCachedFile* file, const QUrl& url) {
    if (url.scheme().toLower().startsWith(QLatin1String("http"))) {
        return Error();
    }
    // A store link or another application's address is the click's destination: the server has
    // counted it, and there is nothing to fetch there.
    cachedFileDownloadDidEnd(file);
    return Error(kPXBErrorDomain, kPXBErrorInvalidRequest);
}
