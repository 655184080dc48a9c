// SPDX-License-Identifier: MIT
// A table with an index of every kind. Three bytes choose the table, its size and its first rows;
// the others choose the operations, after each of which all indexes must agree with the model.
#include "support/indexworld.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    // In-place changes without the old position are warned of, as they should be.
    static const QtMessageHandler usual =
        qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Q_UNUSED(usual)
    if (size < 3)
        return 0;
    std::mt19937 random(data[2]);
    const unsigned char* at = data + 3;
    const unsigned char* const stop = data + size;
    bool isBuilt = false;
    Model::World world(
        [&](int end) {
            if (!isBuilt)
                return int(random() % unsigned(end));
            int byte = at == stop ? 0 : *at++;
            if (end > 256 && at != stop)
                byte = byte << 8 | *at++;
            return byte % end;
        },
        data[0] % 4, data[1] < 250 ? data[1] % 50 : 700); // which take several leaves
    isBuilt = true;
    constexpr int mostSteps = 300;
    for (int step = 0; step < mostSteps && at != stop && world.failure.isEmpty(); ++step)
        world.step();
    if (!world.failure.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(world.failure));
        std::abort();
    }
    return 0;
}
