#pragma once

#include "queue/HistoryEntry.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

class QIODevice;

#include <optional>

// The history file's format: a JSON array of entry objects, pretty-printed with one key per line.
// Both directions are hand-written for speed (a history may hold 100,000 entries) and produce
// or accept plain RFC 8259 JSON.
namespace HistoryJson {

QByteArray encode(const QList<HistoryEntry> &entries);
// The same bytes, streamed to `device` in chunks; false when a write fails.
bool write(QIODevice &device, const QList<HistoryEntry> &entries);

// All or nothing: no value for malformed JSON, invalid UTF-8, anything but a top-level array
// of objects, a missing required key or a value of the wrong type anywhere. Unknown keys are
// ignored; "filePath" may be absent or null. A leading UTF-8 byte-order mark is accepted.
std::optional<QList<HistoryEntry>> decode(QByteArrayView json);

} // namespace HistoryJson
