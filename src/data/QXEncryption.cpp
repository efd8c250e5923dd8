#include <QXFoundation/QXEncryption.h>
#include <QXFoundation/QXString.h>

#include "platform/QXPropertyList_p.h"

#include <QFile>
#include <QStringDecoder>

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>

namespace {

constexpr std::size_t keySize = 32;
constexpr int blockSize = 16;
// EVP's update functions count in int; larger inputs go through in slices
// of this size, a multiple of the block size, which the context chains.
constexpr qsizetype maxSlice = qsizetype(1) << 30;

struct CipherContextDeleter
{
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
};

// The key fitted to 32 bytes, wiped when it goes out of scope.
class FittedKey
{
public:
    FittedKey(const void *bytes, std::size_t length)
    {
        if (bytes)
            std::memcpy(m_bytes, bytes, std::min(length, keySize));
    }
    ~FittedKey() { OPENSSL_cleanse(m_bytes, sizeof m_bytes); }
    FittedKey(const FittedKey &) = delete;
    FittedKey &operator=(const FittedKey &) = delete;

    const unsigned char *data() const { return m_bytes; }

private:
    unsigned char m_bytes[keySize] = {};
};

bool runCipher(EVP_CIPHER_CTX *context, const QByteArray &input, unsigned char *output, qsizetype *written)
{
    const auto *in = reinterpret_cast<const unsigned char *>(input.constData());
    qsizetype total = 0;
    for (qsizetype offset = 0; offset < input.size(); offset += maxSlice) {
        const int slice = int(std::min(maxSlice, input.size() - offset));
        int produced = 0;
        if (!EVP_CipherUpdate(context, output + total, &produced, in + offset, slice))
            return false;
        total += produced;
    }
    int produced = 0;
    if (!EVP_CipherFinal_ex(context, output + total, &produced))
        return false;
    *written = total + produced;
    return true;
}

} // namespace

QByteArray QXCryptedVersionOfDataWithKeyData(const QByteArray &data, const void *keyBytes, std::size_t keyLength,
                                             bool decrypt)
{
    if (data.size() > std::numeric_limits<qsizetype>::max() - blockSize)
        return QByteArray();
    static constexpr unsigned char zeroIv[blockSize] = {};
    const FittedKey key(keyBytes, keyLength);
    const std::unique_ptr<EVP_CIPHER_CTX, CipherContextDeleter> context(EVP_CIPHER_CTX_new());
    if (!context
        || !EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key.data(), zeroIv, decrypt ? 0 : 1)) {
        ERR_clear_error();
        return QByteArray();
    }

    // The cipher writes straight into the result's own buffer: input + one
    // block is enough for the padding (encrypting) or the block EVP holds
    // back (decrypting).
    QByteArray output;
    try {
        output = QByteArray(data.size() + blockSize, Qt::Uninitialized);
    } catch (const std::bad_alloc &) {
        return QByteArray();
    }
    qsizetype written = 0;
    if (!runCipher(context.get(), data, reinterpret_cast<unsigned char *>(output.data()), &written)) {
        // Bad padding or a length that is not a multiple of the block size;
        // leave no error behind in the caller's OpenSSL error queue.
        ERR_clear_error();
        if (decrypt)
            OPENSSL_cleanse(output.data(), std::size_t(output.size()));
        return QByteArray();
    }
    output.truncate(written); // keeps the buffer; an empty result stays non-null
    return output;
}

QByteArray qx_encryptedWithKey(const QByteArray &data, const QByteArray &key)
{
    return QXCryptedVersionOfDataWithKeyData(data, key.constData(), std::size_t(key.size()), false);
}

QByteArray qx_decryptedWithKey(const QByteArray &data, const QByteArray &key)
{
    return QXCryptedVersionOfDataWithKeyData(data, key.constData(), std::size_t(key.size()), true);
}

QByteArray qx_dataWithContentsOfEncryptedFile(const QString &path, const QByteArray &key)
{
    if (path.isEmpty())
        return QByteArray();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    QByteArray contents;
    try {
        contents = file.readAll();
    } catch (const std::bad_alloc &) {
        return QByteArray();
    }
    if (file.error() != QFileDevice::NoError)
        return QByteArray();
    return qx_decryptedWithKey(contents, key);
}

QString qx_stringWithContentsOfEncryptedFile(const QString &path, const QByteArray &key,
                                             QStringConverter::Encoding encoding)
{
    const QByteArray plaintext = qx_dataWithContentsOfEncryptedFile(path, key);
    if (plaintext.isNull())
        return QString();
    // The decoder would drop a last incomplete code unit without an error.
    switch (encoding) {
    case QStringConverter::Utf16:
    case QStringConverter::Utf16LE:
    case QStringConverter::Utf16BE:
        if (plaintext.size() % 2 != 0)
            return QString();
        break;
    case QStringConverter::Utf32:
    case QStringConverter::Utf32LE:
    case QStringConverter::Utf32BE:
        if (plaintext.size() % 4 != 0)
            return QString();
        break;
    default:
        break;
    }
    QStringDecoder decoder(encoding, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(plaintext);
    if (decoder.hasError())
        return QString();
    if (text.isNull())
        text = QLatin1String("");
    return text;
}

namespace {

std::optional<QVariant> propertyListOfEncryptedFile(const QString &path, const QByteArray &key)
{
    const QByteArray plaintext = qx_dataWithContentsOfEncryptedFile(path, key);
    if (plaintext.isNull())
        return std::nullopt;
    return QXPropertyList::parse(plaintext);
}

} // namespace

std::optional<QVariantList> qx_arrayWithContentsOfEncryptedFile(const QString &path, const QByteArray &key)
{
    const std::optional<QVariant> list = propertyListOfEncryptedFile(path, key);
    if (!list || list->typeId() != QMetaType::QVariantList)
        return std::nullopt;
    return list->toList();
}

std::optional<QVariantMap> qx_dictionaryWithContentsOfEncryptedFile(const QString &path, const QByteArray &key)
{
    const std::optional<QVariant> map = propertyListOfEncryptedFile(path, key);
    if (!map || map->typeId() != QMetaType::QVariantMap)
        return std::nullopt;
    return map->toMap();
}
