// The workspace backend of desktops that keep no registry of applications by
// bundle identifier (Linux and the other freedesktop systems): the only
// application known by its identifier is this one.

#include "platform/QXWorkspace_p.h"

#include <QXFoundation/QXBundle.h>

namespace {

class GenericWorkspaceBackend final : public QXWorkspaceBackend
{
public:
    QStringList runningApplications() const override
    {
        const QString self = QXBundle::mainBundle().bundleIdentifier();
        return self.isEmpty() ? QStringList() : QStringList{self};
    }

    bool canRunApplication(const QString &bundleIdentifier) const override
    {
        return !bundleIdentifier.isEmpty() && bundleIdentifier == QXBundle::mainBundle().bundleIdentifier();
    }
};

} // namespace

std::unique_ptr<QXWorkspaceBackend> qxCreatePlatformWorkspaceBackend()
{
    return std::make_unique<GenericWorkspaceBackend>();
}
