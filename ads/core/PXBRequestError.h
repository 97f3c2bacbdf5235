// The error with which a banner reports a failed ad request: domain "com.sorvel.ads", a code
// from the table below and the code's message as its description and failure reason.
#pragma once

#include "platform/error.h"
#include "platform/export.h"

#include <QString>

class PXBRequest;

inline const QString kPXBErrorDomain = QStringLiteral("com.sorvel.ads");
inline const QString kPXBLocalizedFailureReasonKey = QStringLiteral("NSLocalizedFailureReason");

enum PXBErrorCode : qint32 {
    kPXBErrorInvalidRequest = 0,
    kPXBErrorNoFill = 1,
    kPXBErrorNetworkError = 2,
    kPXBErrorServerError = 3,
    kPXBErrorOSVersionTooLow = 4,
    kPXBErrorTimeout = 5,
};

class SORVEL_EXPORT PXBRequestError : public platform::Error {
  public:
    // initWithCode:request: — an invalid-request error (code 0) also carries every entry of the
    // request's parameters, so the developer sees what was (or would have been) sent.
    PXBRequestError(qint64 code, const PXBRequest* request);
    static PXBRequestError errorWithCode(qint64 code, const PXBRequest* request);

    // "Request Error: " and the code's message; codes outside 1 to 5 get code 0's message.
    static QString localizedStringForErrorCode(qint64 code);
};
