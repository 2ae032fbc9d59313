// The meta tags of a Spotify track page.
#include "FuzzInput.h"

#include "discovery/SpotifyResolver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    (void)SpotifyResolver::parseTrackPage(fuzz::text(data, size));
    return 0;
}
