#pragma once

#include <QXFoundation/QXGlobal.h>

class QObject;
class QWidget;

/*!
  The running application as the library's components see it: its main
  window and its delegate.

  The main window is the window the application's work happens in, the one
  an alert attaches to as a window-modal sheet. It is the window the host
  registered with setMainWindow() while that window is visible; otherwise
  the active top-level window, or, when the active window is a dialog (a
  message box, a tool window), the window that dialog belongs to. Dialogs
  never count as main windows. Without a QApplication there is none.

  The delegate is an object of the host's choosing that components ask when
  they have no delegate of their own: a component with a delegate interface
  (such as the rating prompt's) uses it when it implements that interface.

  Both are held as guarded pointers: a destroyed window or delegate reads as
  null. Use them on the main thread.
*/
class QXFOUNDATION_EXPORT QXApplication
{
public:
    QXApplication() = delete;

    static QWidget *mainWindow();
    // Registers the application's main window; null goes back to the active window.
    static void setMainWindow(QWidget *window);

    static QObject *delegate();
    static void setDelegate(QObject *delegate);
};
