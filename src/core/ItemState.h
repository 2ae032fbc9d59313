#pragma once

#include <QString>

// Where a download item is in its life. `processing` carries a status text and `failed` a
// user-facing message; `done`, `failed` and `cancelled` are terminal.
class ItemState {
public:
    enum class Kind { queued, probing, downloading, processing, done, failed, cancelled };

    ItemState() = default;
    static ItemState queued() { return ItemState(Kind::queued); }
    static ItemState probing() { return ItemState(Kind::probing); }
    static ItemState downloading() { return ItemState(Kind::downloading); }
    static ItemState processing(const QString &status) { return ItemState(Kind::processing, status); }
    static ItemState done() { return ItemState(Kind::done); }
    static ItemState failed(const QString &message) { return ItemState(Kind::failed, message); }
    static ItemState cancelled() { return ItemState(Kind::cancelled); }

    Kind kind() const { return m_kind; }
    // The status text of `processing` or the message of `failed`; empty otherwise.
    const QString &text() const { return m_text; }

    bool isTerminal() const { return m_kind == Kind::done || m_kind == Kind::failed || m_kind == Kind::cancelled; }
    bool isActive() const { return !isTerminal(); }
    bool is(Kind k) const { return m_kind == k; }

    friend bool operator==(const ItemState &, const ItemState &) = default;

private:
    explicit ItemState(Kind kind, QString text = {}) : m_kind(kind), m_text(std::move(text)) {}
    Kind m_kind = Kind::queued;
    QString m_text;
};
