// A subtitle file searched for a word: every hit's times come from the file and are ordered.
#include "FuzzInput.h"

#include "analysis/TranscriptSearch.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QString path = fuzz::asFile(data, size, ".srt");
    (void)TranscriptSearch::matches(QStringLiteral("the"), path);
    (void)TranscriptSearch::seconds(fuzz::text(data, size));
    return 0;
}
