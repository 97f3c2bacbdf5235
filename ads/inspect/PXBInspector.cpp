#include "ads/inspect/PXBInspector.h"

#include <QHeaderView>
#include <QJsonDocument>
#include <QPointer>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

constexpr int kWhat = 0;
constexpr int kValue = 1;
constexpr int kTime = 2;
// Where a tracker's row keeps its tracker's id (until the outcome) and the time it was sent.
constexpr int kTrackerRole = Qt::UserRole + 1;
constexpr int kStartRole = Qt::UserRole + 2;
// Older entries of a growing section go: the window stays light however long the ad runs.
constexpr int kMaximumEntries = 50;

QPointer<PXBInspector> theInspector;

QString timeText(double seconds) {
    return QStringLiteral("+%1 s").arg(seconds, 0, 'f', 3);
}

QString valueText(const QVariant& value) {
    if (value.typeId() == QMetaType::QVariantMap || value.typeId() == QMetaType::QVariantList) {
        return QString::fromUtf8(QJsonDocument::fromVariant(value).toJson(QJsonDocument::Compact));
    }
    return value.toString();
}

QTreeWidgetItem* addEntry(QTreeWidgetItem* parent, const QString& what, const QString& value,
                          double seconds) {
    auto* item = new QTreeWidgetItem(parent, {what, value, timeText(seconds)});
    item->setToolTip(kWhat, what);
    while (parent->childCount() > kMaximumEntries) {
        delete parent->takeChild(0);
    }
    return item;
}

void replaceChildren(QTreeWidgetItem* section, const QVariantMap& values) {
    qDeleteAll(section->takeChildren());
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        auto* item = new QTreeWidgetItem(section, {it.key(), valueText(it.value())});
        item->setToolTip(kValue, item->text(kValue));
    }
}

}  // namespace

PXBInspector* PXBInspector::showInspector() {
    if (theInspector == nullptr) {
        theInspector = new PXBInspector;
    }
    theInspector->show();
    theInspector->raise();
    return theInspector;
}

PXBInspector::PXBInspector() {
    setAttribute(Qt::WA_DeleteOnClose);
    // A window for the developer: it neither keeps the application running once its own windows
    // are closed nor counts as one of them (see platform::Application::applicationState).
    setAttribute(Qt::WA_QuitOnClose, false);
    setWindowTitle(QStringLiteral("Sorvel inspector"));
    tree_ = new QTreeWidget(this);
    tree_->setColumnCount(3);
    tree_->setHeaderLabels(
        {QStringLiteral("What"), QStringLiteral("Value"), QStringLiteral("Time")});
    // Long URLs keep both ends in sight (the host and the query's tail); their tooltips hold all.
    tree_->setTextElideMode(Qt::ElideMiddle);
    tree_->header()->setSectionResizeMode(kWhat, QHeaderView::Interactive);
    tree_->header()->resizeSection(kWhat, 280);
    tree_->header()->setSectionResizeMode(kValue, QHeaderView::Stretch);
    tree_->header()->setSectionResizeMode(kTime, QHeaderView::ResizeToContents);
    tree_->setAccessibleName(QStringLiteral("What the ad client did"));
    refused_ = new QTreeWidgetItem(tree_, {QStringLiteral("Refused actions")});
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(tree_);
    resize(720, 560);

    PXBInspection& inspection = PXBInspection::shared();
    inspection.setOn(true);
    connect(&inspection, &PXBInspection::recorded, this, &PXBInspector::add);
    tick_.setInterval(250);
    connect(&tick_, &QTimer::timeout, this, &PXBInspector::updateCountdowns);
    tick_.start();
}

PXBInspector::~PXBInspector() {
    PXBInspection::shared().setOn(false);
}

QTreeWidgetItem* PXBInspector::section(const QString& adUnitID, const QString& name) const {
    for (const Ad& ad : ads_) {
        if (ad.item->data(kWhat, Qt::UserRole).toString() == adUnitID) {
            return ad.sections.value(name);
        }
    }
    return nullptr;
}

PXBInspector::Ad& PXBInspector::adFor(const PXBInspection::Record& record) {
    auto found = ads_.find(record.ad);
    if (found != ads_.end()) {
        return *found;
    }
    Ad ad;
    ad.item = new QTreeWidgetItem({QStringLiteral("Banner %1").arg(record.adUnitID)});
    ad.item->setData(kWhat, Qt::UserRole, record.adUnitID);
    tree_->insertTopLevelItem(tree_->indexOfTopLevelItem(refused_), ad.item);
    for (const char* name :
         {"State", "Request", "Ad URL", "Response", "Trackers", "Refresh", "Last error"}) {
        ad.sections.insert(QString::fromLatin1(name),
                           new QTreeWidgetItem(ad.item, {QString::fromLatin1(name)}));
    }
    ad.item->setExpanded(true);
    // The walk and the trackers are what one reads first; the request and response are long.
    ad.sections.value(QStringLiteral("State"))->setExpanded(true);
    ad.sections.value(QStringLiteral("Trackers"))->setExpanded(true);
    connect(record.ad, &QObject::destroyed, this, [this, key = record.ad] {
        if (auto it = ads_.find(key); it != ads_.end()) {
            it->item->setText(kValue, QStringLiteral("gone"));
            it->refreshDue = -1;
            it->sections.value(QStringLiteral("Refresh"))->setText(kValue, QString());
            // The address may come back with a new ad object, which gets an entry of its own.
            ads_.erase(it);
        }
    });
    return *ads_.insert(record.ad, ad);
}

void PXBInspector::add(const PXBInspection::Record& record) {
    using Kind = PXBInspection::Kind;
    if (record.kind == Kind::Refused) {
        addEntry(refused_, record.text, record.details.value(QStringLiteral("why")).toString(),
                 record.seconds);
        return;
    }
    if (record.ad == nullptr) {
        return;
    }
    Ad& ad = adFor(record);
    switch (record.kind) {
        case Kind::State:
            ad.item->setText(kValue, record.text);
            addEntry(ad.sections.value(QStringLiteral("State")), record.text, QString(),
                     record.seconds);
            break;
        case Kind::Request: {
            QTreeWidgetItem* section = ad.sections.value(QStringLiteral("Request"));
            replaceChildren(section, record.details);
            section->setText(kTime, timeText(record.seconds));
            break;
        }
        case Kind::AdURL: {
            QTreeWidgetItem* section = ad.sections.value(QStringLiteral("Ad URL"));
            section->setText(kValue, record.text);
            section->setToolTip(kValue, record.text);
            section->setText(kTime, timeText(record.seconds));
            break;
        }
        case Kind::Response: {
            QTreeWidgetItem* section = ad.sections.value(QStringLiteral("Response"));
            section->setText(kValue, record.text);
            section->setText(kTime, timeText(record.seconds));
            replaceChildren(section, record.details);
            break;
        }
        case Kind::Tracker: {
            const QString id = record.details.value(QStringLiteral("id")).toString();
            const QString status = record.details.value(QStringLiteral("status")).toString();
            QTreeWidgetItem* section = ad.sections.value(QStringLiteral("Trackers"));
            // A tracker still awaiting its outcome is found by its id; its row may have gone
            // with the oldest ones, and then the outcome has nowhere to go.
            QTreeWidgetItem* row = nullptr;
            for (int i = section->childCount() - 1; i >= 0 && row == nullptr; --i) {
                if (section->child(i)->data(kWhat, kTrackerRole).toString() == id) {
                    row = section->child(i);
                }
            }
            if (row == nullptr) {
                if (status == QLatin1String("sent")) {
                    row = addEntry(section, record.text, status, record.seconds);
                    row->setData(kWhat, kTrackerRole, id);
                    row->setData(kTime, kStartRole, record.seconds);
                }
                break;
            }
            // The outcome: the row keeps the URL it was sent to and gains the time it took.
            const double took = record.seconds - row->data(kTime, kStartRole).toDouble();
            row->setText(kValue,
                         QStringLiteral("%1 after %2 ms").arg(status).arg(qRound(took * 1000)));
            row->setData(kWhat, kTrackerRole, QVariant());  // a later tracker may reuse the id
            break;
        }
        case Kind::Refresh: {
            const double seconds = record.details.value(QStringLiteral("seconds")).toDouble();
            ad.refreshDue = seconds > 0 ? record.seconds + seconds : -1;
            ad.sections.value(QStringLiteral("Refresh"))->setText(kValue, record.text);
            updateCountdowns();
            break;
        }
        case Kind::Error: {
            QTreeWidgetItem* section = ad.sections.value(QStringLiteral("Last error"));
            section->setText(kValue, record.text);
            section->setText(kTime, timeText(record.seconds));
            break;
        }
        case Kind::Refused:
            break;
    }
}

void PXBInspector::updateCountdowns() {
    const double now = PXBInspection::shared().seconds();
    for (const Ad& ad : std::as_const(ads_)) {
        if (ad.refreshDue >= 0) {
            ad.sections.value(QStringLiteral("Refresh"))
                ->setText(
                    kValue,
                    QStringLiteral("next in %1 s").arg(qMax(0.0, ad.refreshDue - now), 0, 'f', 1));
        }
    }
}
