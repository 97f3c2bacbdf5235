// Block cipher on OpenSSL's libcrypto: AES-128 in CBC mode without padding (callers pad by hand).
// libcrypto is loaded the first time a block is ciphered, not with the program: only a location
// the application gives needs it, and loading it costs every start of every program on this
// library about as much as drawing its first window.
#pragma once

#include <QByteArray>

#include <optional>

namespace platform {

// AES-128-CBC with no padding. `key` and `iv` must be 16 bytes and `data` a multiple of 16
// bytes; otherwise nullopt. Also nullopt, said once in the log, when libcrypto cannot be loaded.
std::optional<QByteArray> aes128CbcEncrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv);
std::optional<QByteArray> aes128CbcDecrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv);

}  // namespace platform
