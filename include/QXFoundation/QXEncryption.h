#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <cstddef>
#include <optional>

/*!
  Keyed encryption and encrypted files.

  AES-256 in CBC mode with PKCS#7 padding and an initialization vector of
  16 zero bytes. An encrypted file is the bare ciphertext: no header, no
  stored IV, no integrity check. It is what
  `openssl enc -aes-256-cbc -nosalt -K <key as hex> -iv 0` writes and reads.

  Not authenticated: a wrong key or damaged ciphertext is noticed only when
  the padding happens not to check out (almost always, but not always), and
  equal plaintexts give equal ciphertexts. See docs/encryption.md before
  using this for anything new.

  Keys are any bytes. They are fitted to 32 bytes: longer keys are cut after
  32 bytes, shorter ones are filled up with zero bytes, so a null or empty
  key acts as 32 zero bytes.

  No function throws. Every failure (unreadable file, ciphertext whose
  length is not a positive multiple of 16, bad padding, text not valid in
  the encoding, not a property list, a property list of the other kind,
  memory exhausted) gives "no result": a null QByteArray, a null QString, or
  std::nullopt. A null `data` argument is encrypted as empty data.
*/

/*!
  `data` encrypted (`decrypt` false) or decrypted (`decrypt` true) under the
  first min(`keyLength`, 32) bytes of `keyBytes` (a null `keyBytes` counts as
  no bytes). Encrypting n bytes gives 16 * (n / 16) + 16 bytes. The result
  owns the one buffer the cipher wrote into; on failure it is a null
  QByteArray. Decrypted empty plaintext is an empty, non-null QByteArray.
*/
QXFOUNDATION_EXPORT QByteArray QXCryptedVersionOfDataWithKeyData(const QByteArray &data, const void *keyBytes,
                                                                 std::size_t keyLength, bool decrypt);

// `data` encrypted under `key`; null only if memory runs out.
QXFOUNDATION_EXPORT QByteArray qx_encryptedWithKey(const QByteArray &data, const QByteArray &key);
// `data` decrypted under `key`, or a null QByteArray.
QXFOUNDATION_EXPORT QByteArray qx_decryptedWithKey(const QByteArray &data, const QByteArray &key);

// The whole file at `path`, decrypted under `key`; a null QByteArray when
// the file cannot be read or does not decrypt.
QXFOUNDATION_EXPORT QByteArray qx_dataWithContentsOfEncryptedFile(const QString &path, const QByteArray &key);

/*!
  The decrypted file's property list (binary or XML) if its top level is an
  array (respectively a dictionary), else std::nullopt. Values are QVariant
  trees: QVariantList, QVariantMap, QString, qlonglong (qulonglong for
  integers above its range), double, bool, QDateTime in UTC, QByteArray.
  An empty array or dictionary is a result, not a failure.
*/
QXFOUNDATION_EXPORT std::optional<QVariantList> qx_arrayWithContentsOfEncryptedFile(const QString &path,
                                                                                   const QByteArray &key);
QXFOUNDATION_EXPORT std::optional<QVariantMap> qx_dictionaryWithContentsOfEncryptedFile(const QString &path,
                                                                                       const QByteArray &key);

// The text reader of encrypted files, qx_stringWithContentsOfEncryptedFile(),
// is with the other string utilities in <QXFoundation/QXString.h>.
