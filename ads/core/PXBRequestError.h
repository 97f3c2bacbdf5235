/// \file
/// The error with which a banner reports a failed ad request: domain "com.sorvel.ads", a code
/// from PXBErrorCode and the code's message as its description and failure reason.
#pragma once

#include "platform/error.h"
#include "platform/export.h"

#include <QString>

class PXBRequest;

/// The domain of the ad client's errors.
inline const QString kPXBErrorDomain = QStringLiteral("com.sorvel.ads");
/// User-info key of the failure reason, which repeats the description.
inline const QString kPXBLocalizedFailureReasonKey = QStringLiteral("NSLocalizedFailureReason");

/// The codes of a PXBRequestError.
enum PXBErrorCode : qint32 {
    /// The request was invalid: the ad server rejected its parameters (often for a wrong ad unit
    /// ID) or could not serve it.
    kPXBErrorInvalidRequest = 0,
    kPXBErrorNoFill = 1,           ///< The ad server had no ad to show.
    kPXBErrorNetworkError = 2,     ///< A network error occurred.
    kPXBErrorServerError = 3,      ///< The ad server failed to process the request.
    kPXBErrorOSVersionTooLow = 4,  ///< The system is older than the ad client supports.
    /// The ad did not load within PXBConfiguration::loadTimeoutSeconds().
    kPXBErrorTimeout = 5,
};

/// A failed ad request's error, as a banner's delegate and its PXBBannerView::adFailed() signal
/// receive it.
class SORVEL_EXPORT PXBRequestError : public platform::Error {
  public:
    /// An error with `code` for `request` An invalid-request error
    /// (code 0) also carries every entry of the request's parameters, so the developer sees what
    /// was (or would have been) sent.
    PXBRequestError(qint64 code, const PXBRequest* request);
    /// The same error as the constructor makes.
    static PXBRequestError errorWithCode(qint64 code, const PXBRequest* request);

    /// "Request Error: " and the code's message; codes outside 1 to 5 get code 0's message.
    static QString localizedStringForErrorCode(qint64 code);
};
