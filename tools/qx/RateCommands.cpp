// Commands and tour section of the rate area.

#include "QxCommand.h"

void registerRateCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
