#include <QXFoundation/QXApplication.h>

#include <QApplication>
#include <QPointer>
#include <QWidget>

namespace {

struct ApplicationState
{
    QPointer<QWidget> mainWindow;
    QPointer<QObject> delegate;
};

ApplicationState &state()
{
    static ApplicationState instance;
    return instance;
}

// Windows that exist for a moment next to a main window, never as one.
bool isAuxiliaryWindow(const QWidget *window)
{
    switch (window->windowType()) {
    case Qt::Dialog:
    case Qt::Sheet:
    case Qt::Drawer:
    case Qt::Popup:
    case Qt::Tool:
    case Qt::ToolTip:
    case Qt::SplashScreen:
        return true;
    default:
        return false;
    }
}

} // namespace

QWidget *QXApplication::mainWindow()
{
    if (!qobject_cast<QApplication *>(QCoreApplication::instance()))
        return nullptr;
    QWidget *registered = state().mainWindow;
    if (registered && registered->isVisible())
        return registered;
    QWidget *window = QApplication::activeWindow();
    // A sheet or dialog is active while it is shown; its owner stays the main window.
    while (window && isAuxiliaryWindow(window)) {
        QWidget *owner = window->parentWidget();
        window = owner ? owner->window() : nullptr;
    }
    // Activation follows the window system a moment late; a hidden window is none.
    return window && window->isVisible() ? window : nullptr;
}

void QXApplication::setMainWindow(QWidget *window)
{
    state().mainWindow = window ? window->window() : nullptr;
}

QObject *QXApplication::delegate()
{
    return state().delegate;
}

void QXApplication::setDelegate(QObject *delegate)
{
    state().delegate = delegate;
}
