#pragma once

#include "queue/HistoryEntry.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>

class QIODevice;

#include <optional>

// The history file's format: a JSON array of entry objects, pretty-printed with one key per line.
// Read with simdjson's on-demand parser; written by hand, which is several times faster than
// any general encoder for a history of 100,000 entries.
namespace HistoryJson {

QByteArray encode(const QList<HistoryEntry> &entries);
// The same bytes, streamed to `device` in chunks; false when a write fails.
bool write(QIODevice &device, const QList<HistoryEntry> &entries);

// All or nothing: no value for malformed JSON, invalid UTF-8, anything but a top-level array
// of objects, a missing required key or a value of the wrong type anywhere. Unknown keys are
// ignored; "filePath" may be absent or null. A leading UTF-8 byte-order mark is accepted. An
// escaped lone surrogate is refused with the file: UTF-8 text cannot hold it.
std::optional<QList<HistoryEntry>> decode(QByteArrayView json);
// The same, where the `readable` bytes from json.data() may be read (a mapped file's last page):
// with room enough after the text the parser needs no copy of it.
std::optional<QList<HistoryEntry>> decode(QByteArrayView json, qsizetype readable);

} // namespace HistoryJson
