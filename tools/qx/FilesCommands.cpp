// Commands and tour section of the files area.

#include "QxCommand.h"

void registerFilesCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
