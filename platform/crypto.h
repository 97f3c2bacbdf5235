// Block cipher on OpenSSL's libcrypto: AES-128 in CBC mode without padding (callers pad by hand).
#pragma once

#include <QByteArray>

#include <optional>

namespace platform {

// AES-128-CBC with no padding. `key` and `iv` must be 16 bytes and `data` a multiple of 16
// bytes; otherwise nullopt.
std::optional<QByteArray> aes128CbcEncrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv);
std::optional<QByteArray> aes128CbcDecrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv);

}  // namespace platform
