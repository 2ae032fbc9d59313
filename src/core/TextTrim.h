#pragma once

#include <QStringView>

// Trims spaces and tabs only: line breaks and other white space are meaningful to the callers.
inline QStringView trimSpacesAndTabs(QStringView text) {
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && (text[begin] == u' ' || text[begin] == u'\t'))
        ++begin;
    while (end > begin && (text[end - 1] == u' ' || text[end - 1] == u'\t'))
        --end;
    return text.sliced(begin, end - begin);
}
