#pragma once

#include <QString>

// Every site address the application knows, in one place, so that link normalization, source
// detection, the clipboard filter, search and the discovery services all use the same strings.
namespace SiteAddresses {

// ---- Video and music sites (link normalization, probing, source detection, intake) ----

// (end of video and music sites)


// ---- Discovery services (Spotify, Openverse, cover art and images) ----

// (end of discovery services)


// ---- Speech models and application updates ----

// (end of speech models and application updates)

} // namespace SiteAddresses
