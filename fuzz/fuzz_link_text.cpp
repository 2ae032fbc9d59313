// Pasted text, the clipboard and inbox lines: every link found is in the text and holds no space.
#include "FuzzInput.h"

#include "queue/BatchText.h"
#include "queue/ClipboardWatcher.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const QString text = fuzz::text(data, size);
    for (const QString &link : BatchView::extractURLs(text)) {
        fuzz::check(text.contains(link) && link.startsWith(QStringLiteral("http")));
        fuzz::check(std::none_of(link.cbegin(), link.cend(), [](QChar c) { return c.isSpace(); }));
    }
    (void)ClipboardWatcher::isMediaURL(text);
    return 0;
}
