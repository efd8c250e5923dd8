#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QString>
#include <QStringList>

namespace QXFormat {

/*!
  Fills a format in the style of the library's translatable texts: each
  "%@" takes the next argument, "%N$@" takes argument N (1-based) so a
  translation can reorder them, "%%" is a percent sign. A placeholder
  without a matching argument becomes the empty string; any other "%"
  sequence is copied unchanged. Translations use this form because their
  English keys do.
*/
QXFOUNDATION_EXPORT QString format(const QString &format, const QStringList &arguments);

} // namespace QXFormat
