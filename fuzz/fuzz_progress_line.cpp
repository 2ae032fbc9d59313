// The downloader's progress lines: any text gives a progress within 0…1 or nothing.
#include "FuzzInput.h"

#include "engine/YtDlp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto progress = YtDlp::parseProgressLine(fuzz::text(data, size));
    if (progress && progress->fraction)
        fuzz::check(*progress->fraction >= 0.0 && *progress->fraction <= 1.0);
    return 0;
}
