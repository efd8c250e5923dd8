#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

#include <functional>
#include <vector>

class QTextStream;

// Exit statuses of every qx command.
enum QxExitStatus {
    QxSuccess = 0,
    QxFailure = 1, // the operation failed (bad data, missing file ...)
    QxUsage = 2,   // the command line was wrong
};

// One command of the qx tool ("qx NAME ...").
struct QxCommand
{
    enum class Application { Core, Gui, Widgets };

    QString name;
    QString synopsis;   // one line per form, shown by "qx --help"
    QString help;       // the text of "qx NAME --help"
    Application application = Application::Core;
    // Receives the arguments after the command's name.
    std::function<int(const QStringList &arguments)> run;
};

// A part of "qx tour": one component, shown with sample inputs and outputs.
struct QxTourSection
{
    QString title;
    std::function<void(class QxTour &tour)> run;
};

class QxTour
{
public:
    explicit QxTour(QTextStream &out, const QString &galleryDirectory);
    void heading(const QString &title);
    void line(const QString &text);
    // `expression` and what it gives, one per line.
    void example(const QString &expression, const QString &result);
    // A folder the tour may write files into (created on first use).
    QString galleryDirectory();

private:
    QTextStream &m_out;
    QString m_galleryDirectory;
};

// Helpers shared by the commands.
namespace Qx {

// Prints "qx: message" and the usage to stderr; returns QxUsage.
int usageError(const QxCommand &command, const QString &message);
// Prints "qx COMMAND: message" to stderr; returns QxFailure.
int failure(const QString &command, const QString &message);
bool wantsHelp(const QStringList &arguments);
int printHelp(const QxCommand &command);

// Reads FILE, or standard input when the path is empty or "-".
bool readInput(const QString &path, QByteArray *data, QString *error);

// The bytes of FILE (or of standard input), mapped into memory when FILE is
// a regular file so large inputs are neither copied nor held twice.
class InputBytes
{
public:
    bool open(const QString &path, QString *error);
    QByteArray bytes() const { return m_bytes; }

private:
    QFile m_file;
    QByteArray m_bytes;
};
void writeStdout(const QByteArray &bytes);
void printLine(const QString &text);

} // namespace Qx

// Each area of the library contributes its commands and its part of the tour.
void registerTextCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerDataCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerCryptoCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerFilesCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerCollectionsCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerIntervalCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerGeometryCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerImagingCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerImageCacheCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
void registerRateCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour);
