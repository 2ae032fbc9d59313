#pragma once

#include <QList>

// Every external program the application has started and not yet seen end, by the id of its
// process group (each child leads its own). Quitting ends them all, so nothing outlives the
// window: not a probe, a render, a transcription or a downloader's ffmpeg. Main thread only.
namespace ChildRegistry {

// Registers `pid` for its lifetime; a pid of 0 (the start failed) is ignored.
class Entry {
public:
    explicit Entry(qint64 pid);
    ~Entry();
    Entry(const Entry &) = delete;
    Entry &operator=(const Entry &) = delete;

private:
    qint64 m_pid;
};

QList<qint64> running();

// SIGTERM to every registered group, then runs the event loop until each group is gone (its
// runner has reaped it) or `graceMs` has passed; what is left then gets SIGKILL. True when
// everything ended within the grace time.
bool endAll(int graceMs);

} // namespace ChildRegistry
