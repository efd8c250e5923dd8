// Commands and tour section of the data area.

#include "QxCommand.h"

void registerDataCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
