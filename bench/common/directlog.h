#pragma once

#include <QByteArray>

// The log's writing as it was before lines were queued: glibc's syslog() with LOG_CONS |
// LOG_NDELAY and fprintf(stderr), on the calling thread under a lock. Kept apart from
// logginginterface.h, whose LOG_* macros <syslog.h> would replace.
void openDirect(const char* ident);
void closeDirect();
void writeDirect(int kind, const char* file, int line, const QByteArray& message, bool toStandardError);
