#pragma once

// Umbrella header: every public header of the library, and its version.

#include <QXFoundation/QXGlobal.h>

#include <QXFoundation/QXBundle.h>
#include <QXFoundation/QXCancellationToken.h>
#include <QXFoundation/QXDateFormatter.h>
#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXError.h>
#include <QXFoundation/QXImageCache.h>
#include <QXFoundation/QXMath.h>
#include <QXFoundation/QXNotificationCenter.h>
#include <QXFoundation/QXNumberFormatter.h>
#include <QXFoundation/QXString.h>

// The library's version as a number: 1.0.
QXFOUNDATION_EXPORT extern const double QXFoundationVersionNumber;
// "@(#)PROGRAM:QXFoundation  PROJECT:QXFoundation-1" and a line feed, zero-terminated.
QXFOUNDATION_EXPORT extern const unsigned char QXFoundationVersionString[];
