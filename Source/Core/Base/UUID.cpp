#include "Core/Base/UUID.h"

#include <cstddef>

namespace corvid {

std::string uuidString(std::array<std::uint8_t, 16> randomBytes) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    randomBytes[6] = static_cast<std::uint8_t>((randomBytes[6] & 0x0FU) | 0x40U);
    randomBytes[8] = static_cast<std::uint8_t>((randomBytes[8] & 0x3FU) | 0x80U);

    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < randomBytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        text += kDigits[randomBytes[i] >> 4U];
        text += kDigits[randomBytes[i] & 0x0FU];
    }
    return text;
}

} // namespace corvid
