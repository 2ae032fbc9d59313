// The downloader's full probe: its JSON either gives a result or the typed probe error.
#include "FuzzInput.h"

#include "engine/YtDlp.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Tools::RunResult run;
    run.stdoutText = fuzz::text(data, size);
    try {
        const ProbeResult probe = YtDlp::parseProbeJSON(run, QStringLiteral("https://example.com/watch?v=1"));
        (void)probe.durationText();
    } catch (const YtDlpError &) {
    }
    return 0;
}
