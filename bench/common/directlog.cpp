#include "directlog.h"

#include <common/logline.h>

#include <cstdio>
#include <mutex>
#include <syslog.h>
#include <unistd.h>

namespace {
std::mutex g_directMutex;
}

void openDirect(const char* ident)
{
    ::openlog(ident, LOG_CONS | LOG_NDELAY, LOG_USER);
}

void closeDirect()
{
    ::closelog();
}

void writeDirect(int kind, const char* file, int line, const QByteArray& message, bool toStandardError)
{
    const QByteArray text = formatLogLine(kind, file, line, ::getpid(), 0, message);
    std::lock_guard<std::mutex> lock(g_directMutex);
    ::syslog(kind == LogWarning ? LOG_WARNING : LOG_INFO, "%s", text.constData());
    if (toStandardError)
        std::fprintf(stderr, "%s\n", text.constData());
}
