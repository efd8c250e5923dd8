// Commands and tour section of the interval area.

#include "QxCommand.h"

void registerIntervalCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
