// Commands and tour section of the imaging area.

#include "QxCommand.h"

void registerImagingCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
