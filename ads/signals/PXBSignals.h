// Entry points of the ad-fraud signals module, which collects device and interaction signals
// and hands them back as opaque strings for the ad request and for click URLs.
//
// This build carries no signals module. The built-in one reports failure from every routine and
// records nothing, which the rest of the ad client accepts: requests carry no signals entry and
// click URLs are left as they are. A real module replaces it either by installing its own
// PXBSignalsModule at start-up or by replacing this folder's source file.
#pragma once

#include <QString>

#include <memory>

// What a signals module implements. The defaults are those of the built-in module.
class PXBSignalsModule {
  public:
    virtual ~PXBSignalsModule() = default;

    // Told before each ad request is sent: its request type number and the SDK version string.
    virtual void setRequestTypeAndVersion(int /*requestType*/, const QString& /*sdkVersion*/) {}
    // Fills `signalString` with "key=value" for the ad request's query; true on success.
    virtual bool fillRequestSignals(QString& /*signalString*/) { return false; }
    // Fills `signal` with an encoded block for a click whose URL carries `clickString` as its
    // "ai" value; the block is appended to the URL as a bare query key. True on success.
    virtual bool fillClickSignal(const QString& /*clickString*/, QString& /*signal*/) {
        return false;
    }
    // A touch reported by the ad's script: x, y and a duration or phase value.
    virtual void recordTouch(int /*x*/, int /*y*/, int /*duration*/) {}
};

// The calls the rest of the ad client makes; each goes to the installed module. Main thread.
class PXBSignals {
  public:
    static void setRequestTypeAndVersion(int requestType, const QString& sdkVersion);
    static bool fillRequestSignals(QString& signalString);
    static bool fillClickSignal(const QString& clickString, QString& signal);
    static void recordTouch(int x, int y, int duration);

    // Replaces the module for the rest of the process; null restores the built-in one.
    static void installModule(std::unique_ptr<PXBSignalsModule> module);
};
