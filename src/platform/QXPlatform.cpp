#include "platform/QXPlatform_p.h"

#include <QXFoundation/QXFoundation.h>

Q_LOGGING_CATEGORY(lcQXFoundation, "qxfoundation", QtWarningMsg)

const double QXFoundationVersionNumber = 1.0;
const unsigned char QXFoundationVersionString[] = "@(#)PROGRAM:QXFoundation  PROJECT:QXFoundation-1\n";
