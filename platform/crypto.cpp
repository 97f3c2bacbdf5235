#include "crypto.h"

#include <openssl/evp.h>

#include <memory>

namespace platform {

namespace {

std::optional<QByteArray> aes128Cbc(const QByteArray& data, const QByteArray& key,
                                    const QByteArray& iv, bool encrypt) {
    if (key.size() != 16 || iv.size() != 16 || data.size() % 16 != 0) {
        return std::nullopt;
    }
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                        &EVP_CIPHER_CTX_free);
    if (!ctx ||
        EVP_CipherInit_ex(ctx.get(), EVP_aes_128_cbc(), nullptr,
                          reinterpret_cast<const unsigned char*>(key.constData()),
                          reinterpret_cast<const unsigned char*>(iv.constData()),
                          encrypt ? 1 : 0) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1) {
        return std::nullopt;
    }
    QByteArray out(data.size() + 16, Qt::Uninitialized);
    int written = 0;
    int finalWritten = 0;
    if (EVP_CipherUpdate(ctx.get(), reinterpret_cast<unsigned char*>(out.data()), &written,
                         reinterpret_cast<const unsigned char*>(data.constData()),
                         static_cast<int>(data.size())) != 1 ||
        EVP_CipherFinal_ex(ctx.get(), reinterpret_cast<unsigned char*>(out.data()) + written,
                           &finalWritten) != 1) {
        return std::nullopt;
    }
    out.resize(written + finalWritten);
    return out;
}

}  // namespace

std::optional<QByteArray> aes128CbcEncrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv) {
    return aes128Cbc(data, key, iv, true);
}

std::optional<QByteArray> aes128CbcDecrypt(const QByteArray& data, const QByteArray& key,
                                           const QByteArray& iv) {
    return aes128Cbc(data, key, iv, false);
}

}  // namespace platform
