#pragma once

#include <QObject>
#include <QProcess>

#include <QCoroTask>

// Awaiting QProcess::started or stateChanged directly through QCoro binds their QPrivateSignal
// argument to a null reference (undefined behaviour that UBSan reports), so the two outcomes of
// a launch are relayed through one public signal instead.
class ProcessStartRelay : public QObject {
    Q_OBJECT
public:
    explicit ProcessStartRelay(QProcess *process);
Q_SIGNALS:
    void settled();
};

namespace Tools {
// Resumes once a started process is running (true) or has failed to start (false).
QCoro::Task<bool> waitUntilStarted(QProcess &process);
} // namespace Tools
