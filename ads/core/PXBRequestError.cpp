#include "ads/core/PXBRequestError.h"

#include "ads/core/PXBRequestPrivate.h"
#include "ads/device/PXBIdentifierUtilities.h"

namespace {

QVariantMap userInfoFor(qint64 code, const PXBRequest* request) {
    QVariantMap info;
    const QString text = PXBRequestError::localizedStringForErrorCode(code);
    info.insert(platform::Error::kLocalizedDescriptionKey, text);
    info.insert(kPXBLocalizedFailureReasonKey, text);
    if (code == kPXBErrorInvalidRequest) {
        if (const auto* privateRequest = dynamic_cast<const PXBRequestPrivate*>(request)) {
            info.insert(privateRequest->parameters());
        }
    }
    return info;
}

}  // namespace

PXBRequestError::PXBRequestError(qint64 code, const PXBRequest* request)
    : platform::Error(kPXBErrorDomain, code, userInfoFor(code, request)) {}

PXBRequestError PXBRequestError::errorWithCode(qint64 code, const PXBRequest* request) {
    return PXBRequestError(code, request);
}

QString PXBRequestError::localizedStringForErrorCode(qint64 code) {
    QString message;
    switch (code) {
        case kPXBErrorNoFill:
            message = QStringLiteral("No ad to show.");
            break;
        case kPXBErrorNetworkError:
            message = QStringLiteral("A network error occurred.");
            break;
        case kPXBErrorServerError:
            message = QStringLiteral("Server error processing the request.");
            break;
        case kPXBErrorOSVersionTooLow: {
            int major = 0;
            int minor = 0;
            int bugFix = 0;
            PXBIdentifierUtilities::getOSMajor(&major, &minor, &bugFix);
            message = QString::asprintf(
                "This device's OS is %i.%i.%i.  It is below the minimum "
                "of %i.%i.",
                major, minor, bugFix, 3, 0);
            break;
        }
        case kPXBErrorTimeout:
            message = QStringLiteral(
                "The Sorvel Ad request was unable to be fulfilled before a timeout occurred.");
            break;
        default:
            message = QStringLiteral(
                "Invalid ad request parameter(s).  Check the Xcode console for details.");
            break;
    }
    return QStringLiteral("Request Error: ") + message;
}
