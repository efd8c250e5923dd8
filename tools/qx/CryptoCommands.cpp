// Commands and tour section of the crypto area.

#include "QxCommand.h"

void registerCryptoCommands(std::vector<QxCommand> &commands, std::vector<QxTourSection> &tour)
{
    Q_UNUSED(commands);
    Q_UNUSED(tour);
}
