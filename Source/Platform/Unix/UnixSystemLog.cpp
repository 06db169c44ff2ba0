#include "Platform/Unix/UnixSystemLog.h"

#include "Core/Base/PrintableText.h"

#include <cstdio>

namespace corvid {

void UnixSystemLog::log(std::string_view message) {
    // In one piece, so that lines of several threads do not mix.
    const std::string line = printableText(message) + '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

} // namespace corvid
