// Commands and tour section of the geometry area.

#include "QxCommand.h"

void registerGeometryCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
