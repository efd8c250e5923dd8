#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QByteArray>
#include <QString>

#include <cstddef>

/*!
  Base64 (the standard alphabet, "=" padding, optional CR LF line breaks)
  and lowercase hexadecimal digests of byte data.
*/

extern "C" {

/*!
  Encodes `length` bytes at `buffer` as Base64 into a new zero-terminated
  buffer allocated with malloc(); the caller releases it with free(). With
  `separateLines`, the text is cut into lines of 64 characters (48 input
  bytes each) separated by CR LF, with no separator before the first line or
  after the last. `outputLength`, when given, receives the text's length
  without the terminating zero. Returns null when the buffer cannot be
  allocated; `outputLength` is then left untouched.
*/
QXFOUNDATION_EXPORT char *QXNewBase64Encode(const void *buffer, size_t length, bool separateLines,
                                            size_t *outputLength);

/*!
  Decodes Base64 text into a new buffer allocated with malloc() (not
  zero-terminated); the caller releases it with free(). A `length` of
  SIZE_MAX means the input is zero-terminated and is measured first. Every
  byte outside the alphabet (white space, line breaks, "=", "-", "_", bytes
  from 0x80 up) is skipped, padding is optional and never examined, and a
  group of fewer than four characters yields what its bits hold (one
  character: nothing). `outputLength`, when given, receives the number of
  decoded bytes. Returns null when the buffer cannot be allocated.
*/
QXFOUNDATION_EXPORT void *QXNewBase64Decode(const char *inputBuffer, size_t length, size_t *outputLength);

} // extern "C"

// The bytes that `string` encodes. Never null: a string with a character
// outside ASCII, or without Base64 characters, yields empty data.
QXFOUNDATION_EXPORT QByteArray qx_dataFromBase64String(const QString &string);
// `data` as Base64 text without line breaks (empty for empty data).
QXFOUNDATION_EXPORT QString qx_base64EncodedString(const QByteArray &data);

// Lowercase hexadecimal digests of the bytes (32, 40 and 64 characters).
QXFOUNDATION_EXPORT QString qx_md5Hash(const QByteArray &data);
QXFOUNDATION_EXPORT QString qx_sha1Hash(const QByteArray &data);
QXFOUNDATION_EXPORT QString qx_sha256Hash(const QByteArray &data);
