#include "netaddress.h"

#include <QHash>

namespace platform {

namespace {

QHash<QString, bool>& overrides() {
    static QHash<QString, bool> table;
    return table;
}

bool inSubnet(const QHostAddress& address, const char* subnet) {
    return address.isInSubnet(QHostAddress::parseSubnet(QLatin1String(subnet)));
}

}  // namespace

bool isLocalNetworkAddress(const QHostAddress& address) {
    if (address.isNull()) {
        return false;
    }
    if (const auto it = overrides().constFind(address.toString()); it != overrides().cend()) {
        return *it;
    }
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);  // also unwraps ::ffff:a.b.c.d
    if (isV4) {
        const QHostAddress plain(v4);
        if (plain != address) {
            return isLocalNetworkAddress(plain);
        }
        return plain.isLoopback() || plain.isLinkLocal() || plain.isMulticast() ||
               plain.isBroadcast() || plain == QHostAddress::AnyIPv4 ||
               inSubnet(plain, "0.0.0.0/8") || inSubnet(plain, "10.0.0.0/8") ||
               inSubnet(plain, "172.16.0.0/12") || inSubnet(plain, "192.168.0.0/16") ||
               inSubnet(plain, "100.64.0.0/10");
    }
    return address.isLoopback() || address.isLinkLocal() || address.isUniqueLocalUnicast() ||
           address.isSiteLocal() || address.isMulticast() || address == QHostAddress::AnyIPv6;
}

bool isLocalNetworkHost(const QString& host) {
    QString name = host.toLower();
    if (name.endsWith(u'.')) {
        name.chop(1);  // "localhost." is localhost
    }
    if (name == QLatin1String("localhost") || name.endsWith(QLatin1String(".localhost"))) {
        return true;
    }
    if (name.startsWith(u'[') && name.endsWith(u']')) {
        name = name.mid(1, name.size() - 2);
    }
    const QHostAddress address(name);
    return !address.isNull() && isLocalNetworkAddress(address);
}

void setAddressLocalityForTesting(const QHostAddress& address, std::optional<bool> local) {
    if (local) {
        overrides().insert(address.toString(), *local);
    } else {
        overrides().remove(address.toString());
    }
}

}  // namespace platform
