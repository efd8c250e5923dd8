// Commands and tour section of the imagecache area.

#include "QxCommand.h"

void registerImageCacheCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
