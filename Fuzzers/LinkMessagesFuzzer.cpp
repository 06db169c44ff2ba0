// Whatever the frame decoder takes, it writes again as something that it reads as the same.

#include "Extensions/FileManagers/Link/LinkMessages.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvid::link;
    const Decoded first = decodeFrame({data, size});
    if (first.kind != Decoded::Kind::message) {
        return 0;
    }
    corvid::Bytes once;
    if (!appendFrame(once, first.message)) {
        std::abort();
    }
    const Decoded second = decodeFrame(corvid::ByteView(once).subspan(kFrameHeaderSize));
    corvid::Bytes twice;
    if (second.kind != Decoded::Kind::message || !appendFrame(twice, second.message) ||
        once != twice) {
        std::abort();
    }
    return 0;
}
