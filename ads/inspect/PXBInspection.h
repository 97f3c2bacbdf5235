// What the ad client does, told as it happens to whoever inspects it (the inspector window): each
// ad object's state walk, request parameters, ad URL, response, trackers, refresh schedule and
// errors, and every action refused with its reason. Nothing is recorded while no inspector is
// open.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QVariantMap>

class PXBInspection : public QObject {
    Q_OBJECT
  public:
    enum class Kind { State, Request, AdURL, Response, Tracker, Refresh, Error, Refused };

    struct Record {
        // The ad object it concerns; null for what concerns no single ad (a refused action).
        QObject* ad = nullptr;
        QString adUnitID;
        Kind kind = Kind::State;
        // Seconds since inspection was turned on.
        double seconds = 0;
        QString text;
        QVariantMap details;
    };

    static PXBInspection& shared();
    // Cheap enough to ask before building a record.
    static bool isOn() { return shared().on_; }
    void setOn(bool on);
    // Seconds since inspection was turned on: the clock of every record.
    double seconds() const { return clock_.isValid() ? clock_.elapsed() / 1000.0 : 0; }

    static void record(QObject* ad, const QString& adUnitID, Kind kind, const QString& text,
                       const QVariantMap& details = {});
    // A refused action and why; the ad is not known where actions are refused.
    static void refused(const QString& what, const QString& why);

  signals:
    void recorded(const PXBInspection::Record& record);

  private:
    PXBInspection();
    bool on_ = false;
    QElapsedTimer clock_;
};
