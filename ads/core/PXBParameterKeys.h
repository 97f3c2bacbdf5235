// The keys of an ad request's parameter dictionary. The device's keys live with the identifier
// utilities and the statistics' keys with the statistics; this header gathers all of them.
#pragma once

#include "ads/device/PXBIdentifierUtilities.h"
#include "ads/stats/PXBStatistics.h"

#include <QString>

inline const QString kPXBParameterSDKVersion = QStringLiteral("js");
inline const QString kPXBParameterNetworkType = QStringLiteral("net");
inline const QString kPXBParameterTesting = QStringLiteral("testing");
inline const QString kPXBParameterTestMode = QStringLiteral("adtest");
inline const QString kPXBParameterExtraParams = QStringLiteral("extras");
inline const QString kPXBParameterGender = QStringLiteral("cust_gender");
inline const QString kPXBParameterBirthday = QStringLiteral("cust_age");
inline const QString kPXBParameterKeywords = QStringLiteral("kw");
inline const QString kPXBParameterLocation = QStringLiteral("uule");
inline const QString kPXBParameterAdSlotID = QStringLiteral("slotname");
inline const QString kPXBParameterAdFormat = QStringLiteral("format");
inline const QString kPXBParameterAdFrame = QStringLiteral("ad_frame");
inline const QString kPXBParameterAdBounds = QStringLiteral("ad_bounds");
inline const QString kPXBParameterPlinthSeqNum = QStringLiteral("seq_num");
