// Spotify's oEmbed answer: a title and an artwork address only when they are usable.
#include "FuzzInput.h"

#include "discovery/SpotifyResolver.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto answer = SpotifyResolver::parseOEmbed(fuzz::bytes(data, size));
    fuzz::check(answer.thumbnail.isEmpty() || answer.thumbnail.isValid());
    return 0;
}
