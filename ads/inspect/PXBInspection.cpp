#include "ads/inspect/PXBInspection.h"

PXBInspection& PXBInspection::shared() {
    static PXBInspection* inspection = new PXBInspection;  // lives as long as the process
    return *inspection;
}

PXBInspection::PXBInspection() = default;

void PXBInspection::setOn(bool on) {
    if (on && !on_) {
        clock_.start();
    }
    on_ = on;
}

void PXBInspection::record(QObject* ad, const QString& adUnitID, Kind kind, const QString& text,
                           const QVariantMap& details) {
    PXBInspection& inspection = shared();
    if (!inspection.on_) {
        return;
    }
    emit inspection.recorded(Record{ad, adUnitID, kind, inspection.seconds(), text, details});
}

void PXBInspection::refused(const QString& what, const QString& why) {
    record(nullptr, QString(), Kind::Refused, what, {{QStringLiteral("why"), why}});
}
