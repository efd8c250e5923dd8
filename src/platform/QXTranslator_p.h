#pragma once

#include <QXFoundation/QXGlobal.h>

#include <QString>

// The library's own translations (embedded .qm files, English text as the
// key). Never installed into the application: only the library asks it.
namespace QXTranslator {

// Context of the default table.
inline constexpr char defaultContext[] = "QXFoundation";

// The translation of `key` in `context` for the default QLocale, or a null
// QString when there is none.
QXFOUNDATION_EXPORT QString translate(const QString &key, const QString &context = QString());

} // namespace QXTranslator
