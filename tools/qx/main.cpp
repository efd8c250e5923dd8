// qx: the library's operations on the command line, and a guided tour.

#include "QxCommand.h"

#include <QXFoundation/QXFoundation.h>

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QTextStream>

#include <memory>

namespace {

struct Tool
{
    std::vector<QxCommand> commands;
    std::vector<QxTourSection> tour;

    const QxCommand *find(const QString &name) const
    {
        for (const QxCommand &command : commands)
            if (command.name == name)
                return &command;
        return nullptr;
    }
};

void printUsage(const Tool &tool, QTextStream &out)
{
    out << "Usage: qx COMMAND [ARGUMENTS]\n\n"
           "The QXFoundation library's operations on the command line.\n\n"
           "Commands:\n"
           "  qx tour [--gallery DIR]\n";
    for (const QxCommand &command : tool.commands)
        for (const QString &form : command.synopsis.split(QLatin1Char('\n')))
            out << "  qx " << form << '\n';
    out << "\n'qx COMMAND --help' explains one command. Exit status: 0 on success, "
           "1 when the operation fails, 2 for a wrong command line.\n";
}

int runTour(const Tool &tool, const QStringList &arguments)
{
    QString gallery = QDir::temp().filePath(QStringLiteral("qx-tour"));
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments.at(i) == QLatin1String("--gallery") && i + 1 < arguments.size()) {
            gallery = arguments.at(++i);
        } else if (arguments.at(i) == QLatin1String("--help") || arguments.at(i) == QLatin1String("-h")) {
            QTextStream(stdout) << "Usage: qx tour [--gallery DIR]\n\n"
                                   "A guided run through every component of the library: sample inputs and\n"
                                   "what each operation makes of them. Pictures go into DIR (default "
                                << gallery << ").\n";
            return QxSuccess;
        } else {
            QTextStream(stderr) << "qx tour: unexpected argument '" << arguments.at(i)
                                << "'\nUsage: qx tour [--gallery DIR]\n";
            return QxUsage;
        }
    }
    QTextStream out(stdout);
    out << "QXFoundation " << QString::number(QXFoundationVersionNumber, 'f', 1) << " — a tour\n";
    QxTour tour(out, gallery);
    for (const QxTourSection &section : tool.tour) {
        tour.heading(section.title);
        section.run(tour);
    }
    out << '\n';
    return QxSuccess;
}

std::unique_ptr<QCoreApplication> makeApplication(QxCommand::Application kind, int &argc, char **argv)
{
    // Without a display the GUI classes still work with the offscreen platform.
    if (kind != QxCommand::Application::Core && qEnvironmentVariableIsEmpty("DISPLAY")
        && qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    switch (kind) {
    case QxCommand::Application::Core: return std::make_unique<QCoreApplication>(argc, argv);
    case QxCommand::Application::Gui: return std::make_unique<QGuiApplication>(argc, argv);
    case QxCommand::Application::Widgets: return std::make_unique<QApplication>(argc, argv);
    }
    return nullptr;
}

} // namespace

int main(int argc, char **argv)
{
    Tool tool;
    // In tour order.
    registerTextCommands(tool.commands, tool.tour);
    registerDataCommands(tool.commands, tool.tour);
    registerCryptoCommands(tool.commands, tool.tour);
    registerFilesCommands(tool.commands, tool.tour);
    registerCollectionsCommands(tool.commands, tool.tour);
    registerIntervalCommands(tool.commands, tool.tour);
    registerGeometryCommands(tool.commands, tool.tour);
    registerImagingCommands(tool.commands, tool.tour);
    registerImageCacheCommands(tool.commands, tool.tour);
    registerRateCommands(tool.commands, tool.tour);

    const QString name = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const QxCommand *command = tool.find(name);
    const bool isTour = name == QLatin1String("tour");
    QxCommand::Application kind = QxCommand::Application::Core;
    if (command)
        kind = command->application;
    else if (isTour)
        kind = QxCommand::Application::Widgets;
    const std::unique_ptr<QCoreApplication> app = makeApplication(kind, argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("qx"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("qxfoundation.org"));
    QCoreApplication::setApplicationVersion(QStringLiteral("1.0"));

    QStringList arguments = QCoreApplication::arguments().mid(2);

    if (name.isEmpty()) {
        QTextStream err(stderr);
        printUsage(tool, err);
        return QxUsage;
    }
    if (name == QLatin1String("--help") || name == QLatin1String("-h") || name == QLatin1String("help")) {
        QTextStream out(stdout);
        printUsage(tool, out);
        return QxSuccess;
    }
    if (name == QLatin1String("--version")) {
        QTextStream(stdout) << "qx " << QString::number(QXFoundationVersionNumber, 'f', 1) << '\n';
        return QxSuccess;
    }
    if (isTour)
        return runTour(tool, arguments);
    if (!command) {
        QTextStream(stderr) << "qx: unknown command '" << name << "'. Try 'qx --help'.\n";
        return QxUsage;
    }
    if (Qx::wantsHelp(arguments))
        return Qx::printHelp(*command);
    return command->run(arguments);
}
