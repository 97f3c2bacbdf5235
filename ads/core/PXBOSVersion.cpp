#include "ads/core/PXBOSVersion.h"

#include <QStringList>
#include <QSysInfo>

namespace {
std::optional<PXBOSVersion>& override() {
    static std::optional<PXBOSVersion> version;
    return version;
}
}  // namespace

PXBOSVersion PXBOSVersion::current() {
    if (override()) {
        return *override();
    }
    // "12", "22.04", "6.1.0": missing parts count as 0, a non-numeric part as 0.
    const QStringList parts = QSysInfo::productVersion().split('.');
    PXBOSVersion version;
    int* fields[] = {&version.major, &version.minor, &version.bugFix};
    for (int i = 0; i < 3 && i < parts.size(); ++i) {
        *fields[i] = parts[i].toInt();
    }
    return version;
}

void PXBOSVersion::setOverride(std::optional<PXBOSVersion> version) {
    override() = version;
}
