#pragma once

#include <QString>

#include <optional>

// What the clipboard watcher needs of a clipboard: a counter that rises on every change and
// the current plain text. The desktop's clipboard implements it in the application shell;
// tests drive a fake one.
class ClipboardSource {
public:
    virtual ~ClipboardSource() = default;
    virtual qint64 changeCount() const = 0;
    // None when the clipboard holds no text.
    virtual std::optional<QString> text() const = 0;
};
