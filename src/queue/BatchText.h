#pragma once

#include <QString>
#include <QStringList>

// Link extraction for the batch sheet and the link bar; pure, callable from any thread.
namespace BatchView {

// Every http(s) link in `text`, in order of first appearance, without trailing sentence
// punctuation and without repeats. Upper-case schemes are not links here.
QStringList extractURLs(const QString &text);

} // namespace BatchView
