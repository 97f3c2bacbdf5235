#include "ads/signals/PXBSignals.h"

namespace {

std::unique_ptr<PXBSignalsModule>& installed() {
    static std::unique_ptr<PXBSignalsModule> module = std::make_unique<PXBSignalsModule>();
    return module;
}

}  // namespace

void PXBSignals::setRequestTypeAndVersion(int requestType, const QString& sdkVersion) {
    installed()->setRequestTypeAndVersion(requestType, sdkVersion);
}

bool PXBSignals::fillRequestSignals(QString& signalString) {
    return installed()->fillRequestSignals(signalString);
}

bool PXBSignals::fillClickSignal(const QString& clickString, QString& signal) {
    return installed()->fillClickSignal(clickString, signal);
}

void PXBSignals::recordTouch(int x, int y, int duration) {
    installed()->recordTouch(x, y, duration);
}

void PXBSignals::installModule(std::unique_ptr<PXBSignalsModule> module) {
    installed() = module ? std::move(module) : std::make_unique<PXBSignalsModule>();
}
