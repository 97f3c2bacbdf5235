// Follows one tracking or click URL to its end so that the ad server counts it. The first redirect
// to a scheme that is not http(s) (a store link, another application) ends the tracking there, as
// a success, without being fetched.
#pragma once

#include "ads/net/PXBCachedFile.h"
#include "platform/error.h"
#include "platform/weakref.h"

#include <QUrl>

#include <memory>

class PXBClickTracker;

// Both operations are optional. Each tracking reports at most one of them, once.
class PXBClickTrackerDelegate : public platform::Referenceable {
  public:
    // The tracking ended well; `url` is the tracker's trackingURL().
    virtual void trackerDidRedirect(PXBClickTracker* /*tracker*/, const QUrl& /*url*/) {}
    // The fetch failed before anything was reported; the error is null for a bad HTTP status.
    virtual void trackerDidFailWithError(PXBClickTracker* /*tracker*/,
                                         const platform::Error& /*error*/) {}
};

class PXBClickTracker : private PXBCachedFileDelegate {
  public:
    explicit PXBClickTracker(PXBClickTrackerDelegate* delegate = nullptr);
    ~PXBClickTracker() override;
    PXBClickTracker(const PXBClickTracker&) = delete;
    PXBClickTracker& operator=(const PXBClickTracker&) = delete;

    // Not retained.
    PXBClickTrackerDelegate* delegate() const { return delegate_.get(); }
    void setDelegate(PXBClickTrackerDelegate* delegate) { delegate_.reset(delegate); }

    // Abandons any tracking in progress (its file is deleted) and fetches `url`; an empty URL
    // does nothing.
    void trackURL(const QUrl& url);
    // The outcome of the current URL has been reported.
    bool hasTracked() const { return hasTracked_; }
    // The last URL requested: after a stopped redirect, the non-http target.
    QUrl trackingURL() const;
    // Of the last response; 0 before any.
    int httpStatusCode() const { return tracker_ ? tracker_->httpStatusCode() : 0; }
    // Stops the fetch without a report, deletes its file and forgets the outcome.
    void reset();

    // True while any tracker in the process is between trackURL and its report (or reset): the
    // desktop has no background tasks, so a process-wide count stands in for them.
    static bool activeTrackings();

  private:
    void cachedFileDownloadDidEnd(PXBCachedFile* file) override;
    void cachedFileDownloadDidFail(PXBCachedFile* file, const platform::Error& error) override;
    platform::Error cachedFileShouldRedirectToURL(PXBCachedFile* file, const QUrl& url) override;
    void beginBackgroundTask();
    void endBackgroundTask();

    platform::WeakRef<PXBClickTrackerDelegate> delegate_;
    std::unique_ptr<PXBCachedFile> tracker_;
    bool hasTracked_ = false;
    int backgroundTaskID_ = 0;
};
