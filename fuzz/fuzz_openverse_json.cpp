// An answer of the picture search service: results, or the typed bad-response error.
#include "FuzzInput.h"

#include "discovery/ImageSearch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    try {
        for (const ImageSearch::Result &result : ImageSearch::parseSearchResults(fuzz::bytes(data, size)))
            (void)ImageSearch::creditText(result);
    } catch (const ImageSearch::ImageError &) {
    }
    return 0;
}
