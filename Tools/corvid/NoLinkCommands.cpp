#include "Commands.h"

namespace corvid {

void addLinkCommands(const Command& /*program*/) {}

} // namespace corvid
