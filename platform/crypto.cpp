#include "crypto.h"

#include "platform/log.h"

#include <openssl/evp.h>

#include <dlfcn.h>

#include <memory>

namespace platform {

namespace {

// The few libcrypto functions the cipher needs, looked up in the library loaded by its soname
// (SORVEL_CRYPTO_SONAME, the one the build found), with the prototypes of its headers.
struct Crypto {
    decltype(&EVP_CIPHER_CTX_new) newContext = nullptr;
    decltype(&EVP_CIPHER_CTX_free) freeContext = nullptr;
    decltype(&EVP_aes_128_cbc) aes128Cbc = nullptr;
    decltype(&EVP_CipherInit_ex) init = nullptr;
    decltype(&EVP_CIPHER_CTX_set_padding) setPadding = nullptr;
    decltype(&EVP_CipherUpdate) update = nullptr;
    decltype(&EVP_CipherFinal_ex) finish = nullptr;

    static const Crypto* get() {
        static const std::optional<Crypto> loaded = load();
        return loaded ? &*loaded : nullptr;
    }

  private:
    template <typename Function>
    static bool find(void* library, const char* name, Function& function) {
        function = reinterpret_cast<Function>(dlsym(library, name));
        return function != nullptr;
    }

    static std::optional<Crypto> load() {
        void* library = dlopen(SORVEL_CRYPTO_SONAME, RTLD_NOW | RTLD_LOCAL);
        Crypto c;
        if (library == nullptr || !(find(library, "EVP_CIPHER_CTX_new", c.newContext) &&
                                    find(library, "EVP_CIPHER_CTX_free", c.freeContext) &&
                                    find(library, "EVP_aes_128_cbc", c.aes128Cbc) &&
                                    find(library, "EVP_CipherInit_ex", c.init) &&
                                    find(library, "EVP_CIPHER_CTX_set_padding", c.setPadding) &&
                                    find(library, "EVP_CipherUpdate", c.update) &&
                                    find(library, "EVP_CipherFinal_ex", c.finish))) {
            logLine(
                QStringLiteral("<Sorvel> No cipher: %1 cannot be used (%2)")
                    .arg(QLatin1String(SORVEL_CRYPTO_SONAME), QString::fromLocal8Bit(dlerror())));
            return std::nullopt;
        }
        return c;
    }
};

std::optional<QByteArray> aes128Cbc(const QByteArray& data, const QByteArray& key,
                                    const QByteArray& iv, bool encrypt) {
    if (key.size() != 16 || iv.size() != 16 || data.size() % 16 != 0) {
        return std::nullopt;
    }
    const Crypto* crypto = Crypto::get();
    if (crypto == nullptr) {
        return std::nullopt;
    }
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(crypto->newContext(),
                                                                        crypto->freeContext);
    if (!ctx ||
        crypto->init(ctx.get(), crypto->aes128Cbc(), nullptr,
                     reinterpret_cast<const unsigned char*>(key.constData()),
                     reinterpret_cast<const unsigned char*>(iv.constData()),
                     encrypt ? 1 : 0) != 1 ||
        crypto->setPadding(ctx.get(), 0) != 1) {
        return std::nullopt;
    }
    QByteArray out(data.size() + 16, Qt::Uninitialized);
    int written = 0;
    int finalWritten = 0;
    if (crypto->update(ctx.get(), reinterpret_cast<unsigned char*>(out.data()), &written,
                       reinterpret_cast<const unsigned char*>(data.constData()),
                       static_cast<int>(data.size())) != 1 ||
        crypto->finish(ctx.get(), reinterpret_cast<unsigned char*>(out.data()) + written,
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
