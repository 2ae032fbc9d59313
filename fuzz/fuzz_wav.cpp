// WAV chunks as ffmpeg writes them, or anything else: samples or nothing, never a crash.
#include "FuzzInput.h"

#include "analysis/PracticeMode.h"

#include <cmath>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto samples = PracticeMode::readMonoWav16(fuzz::asFile(data, size, ".wav"));
    if (samples)
        for (float s : *samples)
            fuzz::check(std::isfinite(s) && s >= -1.0f && s <= 1.0f);
    return 0;
}
