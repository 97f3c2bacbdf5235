// The integrator's window onto the ad client, the first thing to open when no ad shows: for each
// banner, live, its state walk with times, the request parameters (with the location as the
// application gave it), the ad URL, the response with its headers, every tracker with its outcome
// and time, the refresh countdown and the last error; below them, every action refused with its
// reason. It shows what happens from the moment inspection is on.
#pragma once

#include "ads/inspect/PXBInspection.h"

#include <QHash>
#include <QTimer>
#include <QWidget>

class QTreeWidget;
class QTreeWidgetItem;

class PXBInspector : public QWidget {
    Q_OBJECT
  public:
    // The one inspector, made on first call, shown and raised; inspection is on from then on.
    static PXBInspector* showInspector();
    ~PXBInspector() override;

    // One top-level item per ad ("Banner <unit>", its state) with its sections as children, and
    // "Refused actions" last. Columns: what, value, time.
    QTreeWidget* tree() const { return tree_; }
    // The section `name` ("State", "Request", ...) of the ad whose unit is `adUnitID`.
    QTreeWidgetItem* section(const QString& adUnitID, const QString& name) const;
    QTreeWidgetItem* refusedActions() const { return refused_; }

  private:
    struct Ad {
        QTreeWidgetItem* item = nullptr;
        QHash<QString, QTreeWidgetItem*> sections;
        double refreshDue = -1;  // seconds on the inspection clock; -1: none scheduled
    };

    PXBInspector();
    void add(const PXBInspection::Record& record);
    Ad& adFor(const PXBInspection::Record& record);
    void updateCountdowns();

    QTreeWidget* tree_ = nullptr;
    QTreeWidgetItem* refused_ = nullptr;
    QHash<QObject*, Ad> ads_;
    QTimer tick_;
};
