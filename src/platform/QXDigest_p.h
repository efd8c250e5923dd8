#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QString>

#include <cstddef>

// Digests through OpenSSL's one-shot EVP interface, written as lowercase hex.
namespace QXDigest {

enum class Algorithm { MD5, SHA1, SHA256 };

QXFOUNDATION_EXPORT QString hex(Algorithm algorithm, const void *data, std::size_t length);
// Lowercase hex of arbitrary bytes, two characters per byte.
QXFOUNDATION_EXPORT QString toHex(const unsigned char *bytes, std::size_t length);

} // namespace QXDigest
