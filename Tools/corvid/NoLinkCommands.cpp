#include "Commands.h"

namespace corvid {

void addLinkCommands(CLI::App& /*app*/) {}

} // namespace corvid
