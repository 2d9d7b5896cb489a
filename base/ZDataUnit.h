// Units of memory figures.
#pragma once

namespace Ulmex {

struct ZDataUnit {
    enum DataUnit { zBytes = 1, zKilobytes = 2, zMegabytes = 3, zGigabytes = 4 };

    // Scale from bytes to `unit`, or a negative number for a value outside the enumeration.
    static double scale(int unit) {
        switch (unit) {
        case zBytes: return 1.0;
        case zKilobytes: return 1.0 / 1024.0;
        case zMegabytes: return 1.0 / (1024.0 * 1024.0);
        case zGigabytes: return 1.0 / (1024.0 * 1024.0 * 1024.0);
        default: return -1.0;
        }
    }
};

} // namespace Ulmex
