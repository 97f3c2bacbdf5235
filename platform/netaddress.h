// Which addresses belong to the user's own network (loopback, link-local, private and shared
// ranges): content from outside may name them, and a request that goes there reaches the user's
// router, printer or development servers from inside this process.
#pragma once

#include <QHostAddress>
#include <QString>

#include <optional>

namespace platform {

// Loopback, link-local, private (10/8, 172.16/12, 192.168/16, fc00::/7), shared (100.64/10),
// multicast, broadcast, unspecified, and IPv4 addresses of those kinds mapped into IPv6.
bool isLocalNetworkAddress(const QHostAddress& address);

// Whether a host names the local network without a look-up: a local address literal,
// "localhost" or a name under ".localhost". Other names need their addresses checked.
bool isLocalNetworkHost(const QString& host);

// For tests, which may send traffic to loopback only: `address` counts as local (true) or as
// public (false) whatever its range, so one loopback address can stand for the internet and
// another for the local network. nullopt forgets the override.
void setAddressLocalityForTesting(const QHostAddress& address, std::optional<bool> local);

}  // namespace platform
