#include "Benchmarks/Transport/DBus.h"

#include <cstdio>

namespace corvid::bench {

std::unique_ptr<DBus> DBus::start() {
    std::fprintf(stderr, "No comparison with D-Bus: built without libsystemd (libsystemd-dev).\n");
    return nullptr;
}

} // namespace corvid::bench
