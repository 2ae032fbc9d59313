// One line of the downloader's search output.
#include "FuzzInput.h"

#include "discovery/YtDlpSearch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    (void)YtDlp::parseSearchLine(fuzz::text(data, size));
    return 0;
}
