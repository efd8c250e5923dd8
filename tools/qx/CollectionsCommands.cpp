// Commands and tour section of the collections area.

#include "QxCommand.h"

void registerCollectionsCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
