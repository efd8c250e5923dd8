#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QLoggingCategory>
#include <QString>

// The library's logging category, "qxfoundation" (warnings and above by default).
QXFOUNDATION_EXPORT const QLoggingCategory &lcQXFoundation();

namespace QXPlatform {

// Reverse-DNS prefix of the library's maker; begins the framework bundle
// identifier, the image cache's names and queue labels.
inline QString vendorPrefix() { return QStringLiteral("org.qxfoundation"); }
inline QString frameworkBundleIdentifier() { return vendorPrefix() + QStringLiteral(".QXFoundation"); }

} // namespace QXPlatform
