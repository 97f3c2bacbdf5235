#include "ads/net/PXBNumberUtilities.h"

QString PXBNumberUtilities::stringWithFloat(float value) {
    QString text = QString::asprintf("%f", static_cast<double>(value));
    qsizetype end = text.size();
    while (end > 0 && text.at(end - 1) == QLatin1Char('0')) {
        --end;
    }
    if (end > 0 && text.at(end - 1) == QLatin1Char('.')) {
        --end;
    }
    text.truncate(end);
    return text;
}
