#include "engine/ChildRegistry.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QScopeGuard>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <csignal>

namespace ChildRegistry {
namespace {

QList<qint64> &registered() {
    static QList<qint64> pids;
    return pids;
}

// While quitting ends everything: whatever starts meanwhile (a fallback probe, the next step of
// a pipeline) is ended at once, so nothing is left running when the window is gone.
bool ending = false;

// A group exists while any member, even an unreaped one, does.
bool groupExists(qint64 pid) { return ::kill(-pid_t(pid), 0) == 0 || errno != ESRCH; }

} // namespace

Entry::Entry(qint64 pid) : m_pid(pid) {
    if (m_pid <= 0)
        return;
    registered().append(m_pid);
    if (ending && ::kill(-pid_t(m_pid), SIGTERM) != 0)
        ::kill(pid_t(m_pid), SIGTERM);
}

Entry::~Entry() {
    if (m_pid > 0)
        registered().removeOne(m_pid);
}

QList<qint64> running() { return registered(); }

bool endAll(int graceMs) {
    // Groups outlive their leader when it started something (yt-dlp's ffmpeg), so the groups
    // are remembered here rather than looked up again.
    ending = true;
    const auto ended = qScopeGuard([] { ending = false; });
    QList<qint64> groups = registered();
    for (qint64 pid : std::as_const(groups))
        if (::kill(-pid_t(pid), SIGTERM) != 0)
            ::kill(pid_t(pid), SIGTERM);

    const auto pending = [&groups] {
        for (qint64 pid : registered()) // started meanwhile, and already told to end
            if (!groups.contains(pid))
                groups << pid;
        groups.removeIf([](qint64 pid) { return !registered().contains(pid) && !groupExists(pid); });
        return !groups.isEmpty();
    };
    QElapsedTimer waited;
    waited.start();
    if (pending()) {
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (!pending() || waited.elapsed() >= graceMs)
                loop.quit();
        });
        poll.start(20);
        loop.exec();
    }
    if (groups.isEmpty())
        return true;
    for (qint64 pid : std::as_const(groups))
        ::kill(-pid_t(pid), SIGKILL);
    return false;
}

} // namespace ChildRegistry
