#include "platform/QXDigest_p.h"

#include <openssl/evp.h>

QString QXDigest::toHex(const unsigned char *bytes, std::size_t length)
{
    static constexpr char digits[] = "0123456789abcdef";
    QString text(qsizetype(length * 2), Qt::Uninitialized);
    QChar *out = text.data();
    for (std::size_t i = 0; i < length; ++i) {
        *out++ = QLatin1Char(digits[bytes[i] >> 4]);
        *out++ = QLatin1Char(digits[bytes[i] & 0x0F]);
    }
    return text;
}

QString QXDigest::hex(Algorithm algorithm, const void *data, std::size_t length)
{
    const EVP_MD *md = nullptr;
    switch (algorithm) {
    case Algorithm::MD5: md = EVP_md5(); break;
    case Algorithm::SHA1: md = EVP_sha1(); break;
    case Algorithm::SHA256: md = EVP_sha256(); break;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    static const unsigned char empty = 0;
    if (!EVP_Digest(data ? data : &empty, length, digest, &size, md, nullptr))
        return QString();
    return toHex(digest, size);
}
