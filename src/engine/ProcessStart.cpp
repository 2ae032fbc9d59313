#include "engine/ProcessStart.h"

#include <QCoroSignal>

ProcessStartRelay::ProcessStartRelay(QProcess *process) : QObject(process) {
    connect(process, &QProcess::started, this, [this] { Q_EMIT settled(); });
    connect(process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            Q_EMIT settled();
    });
}

namespace Tools {
QCoro::Task<bool> waitUntilStarted(QProcess &process) {
    if (process.state() == QProcess::Starting) {
        ProcessStartRelay relay(&process);
        co_await qCoro(&relay, &ProcessStartRelay::settled);
    }
    co_return process.state() == QProcess::Running;
}
} // namespace Tools
