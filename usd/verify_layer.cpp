// groomcore-usd-verify FILE: ZUsdLayer::readEveryValue(FILE) in a process of its own, its
// answer the exit status (0 read, 1 not a USD layer, 2 bad usage). The USD readers run it
// before they open a file in the host's process: OpenUSD's parsers do not survive every
// corrupt file, and a crash here ends this process only.
#include "usd/ZUsdLayer.h"

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    return ZUsdLayer::readEveryValue(argv[1]);
}
