// The history file: whatever decodes must encode and decode to the same entries.
#include "FuzzInput.h"

#include "queue/HistoryJson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const auto entries = HistoryJson::decode(QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (entries)
        fuzz::check(HistoryJson::decode(HistoryJson::encode(*entries)) == entries);
    return 0;
}
