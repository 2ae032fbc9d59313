// The update feed: a release whose link, when it has one, is http(s); or nothing.
#include "FuzzInput.h"

#include "app/AppUpdater.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto release = AppUpdater::newestRelease(fuzz::bytes(data, size));
    if (release)
        fuzz::check(release->link.isEmpty() || release->link.scheme() == QStringLiteral("http") ||
                    release->link.scheme() == QStringLiteral("https"));
    return 0;
}
