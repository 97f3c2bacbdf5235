// Any URL an ad's page navigates to, read the way the web view delegate reads it: as an in-ad
// message, then as the "open" message's request, and as a "mailto:" link for the composer.
//
// Input layout: byte 0 picks a prefix ("" / "qmsg:/open?" / "torvin://launch?" / "mailto:"),
// so that most inputs reach the deeper readers; the rest is the URL's text.
#include "ads/bridge/PXBNotification.h"
#include "ads/net/PXBNetworkUtilities.h"
#include "ads/present/PXBOpener.h"
#include "ads/present/PXBViewController.h"

#include <cstdint>
#include <cstdlib>

namespace {

void checkOpenRequest(const QVariantMap& parameters) {
    const std::optional<PXBOpener::OpenRequest> request =
        PXBOpener::openRequestFromParameters(parameters);
    if (!request) {
        return;
    }
    // Something to open: a well-formed URL, or HTML for a web app.
    if (request->url.isEmpty()) {
        if (request->action != QLatin1String("webapp") || request->html.isNull()) {
            abort();
        }
    } else if (!request->url.isValid()) {
        abort();
    }
    const int o = request->orientation;
    if (o != PXBOrientationAny && o != PXBOrientationPortrait && o != PXBOrientationLandscape) {
        abort();
    }
}

void checkMessage(const QString& text) {
    const std::optional<PXBNotification> message = PXBNotification::notificationFromURL(text);
    if (message.has_value() != PXBNotification::isNotificationURL(text)) {
        // A message URL always names a message, except a "torvin:" host that is none of its three.
        if (!PXBNotification::isTorvinNotificationURL(text)) {
            abort();
        }
    }
    if (message) {
        const QVariantMap parameters = message->parameters();
        for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
            if (it.value().typeId() != QMetaType::QString) {
                abort();
            }
        }
        checkOpenRequest(parameters);
    }
    // The delegate hands over a QUrl: the engine's parsed form must read without harm too.
    (void)PXBNotification::notificationFromURL(QUrl(text));
}

void checkMail(const QString& text) {
    const PXBOpener::MailFields mail = PXBOpener::mailFieldsFromURL(QUrl(text));
    if (mail.recipient.contains(QLatin1Char('?'))) {
        abort();
    }
    // Escaped text in "cc" comes back as the list it was written as.
    const QString escaped = PXBNetworkUtilities::encodeURL(text);
    const PXBOpener::MailFields round =
        PXBOpener::mailFieldsFromURL(QUrl(QStringLiteral("mailto:a@b.example?cc=") + escaped));
    if (round.recipient != QLatin1String("a@b.example") ||
        round.cc.join(QLatin1Char(',')) != text || !round.bcc.isEmpty()) {
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static const char* const prefixes[] = {"", "qmsg:/open?", "torvin://launch?", "mailto:"};
    const QString rest = QString::fromUtf8(reinterpret_cast<const char*>(data + 1),
                                           static_cast<qsizetype>(size - 1));
    const int choice = data[0] % 4;
    const QString text = QString::fromLatin1(prefixes[choice]) + rest;
    if (choice == 3) {
        checkMail(text);
    } else {
        checkMessage(text);
    }
    return 0;
}
