#pragma once

// Umbrella header: every public header of the library, and its version.

#include <QXFoundation/QXGlobal.h>

#include <QXFoundation/QXApplication.h>
#include <QXFoundation/QXAppStoreLookup.h>
#include <QXFoundation/QXArray.h>
#include <QXFoundation/QXBezierPath.h>
#include <QXFoundation/QXBezierPathUtilities.h>
#include <QXFoundation/QXBlurEffect.h>
#include <QXFoundation/QXBundle.h>
#include <QXFoundation/QXCalendar.h>
#include <QXFoundation/QXCancellationToken.h>
#include <QXFoundation/QXCollectionTraits.h>
#include <QXFoundation/QXColor.h>
#include <QXFoundation/QXData.h>
#include <QXFoundation/QXDateComponents.h>
#include <QXFoundation/QXDateFormatter.h>
#include <QXFoundation/QXDictionary.h>
#include <QXFoundation/QXDispatchQueue.h>
#include <QXFoundation/QXEncryption.h>
#include <QXFoundation/QXError.h>
#include <QXFoundation/QXFileManager.h>
#include <QXFoundation/QXFileMonitor.h>
#include <QXFoundation/QXImage.h>
#include <QXFoundation/QXImageCache.h>
#include <QXFoundation/QXIndexPath.h>
#include <QXFoundation/QXJSON.h>
#include <QXFoundation/QXMath.h>
#include <QXFoundation/QXNotificationCenter.h>
#include <QXFoundation/QXNumberFormatter.h>
#include <QXFoundation/QXRange.h>
#include <QXFoundation/QXRate.h>
#include <QXFoundation/QXRateDelegate.h>
#include <QXFoundation/QXScalableImage.h>
#include <QXFoundation/QXSortedList.h>
#include <QXFoundation/QXString.h>
#include <QXFoundation/QXThreePartImage.h>
#include <QXFoundation/QXTimeIntervalFormatter.h>

// The library's version as a number: 1.0.
QXFOUNDATION_EXPORT extern const double QXFoundationVersionNumber;
// "@(#)PROGRAM:QXFoundation  PROJECT:QXFoundation-1" and a line feed, zero-terminated.
QXFOUNDATION_EXPORT extern const unsigned char QXFoundationVersionString[];
