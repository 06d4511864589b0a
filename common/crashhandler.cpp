#include "crashhandler.h"

#include "defaults.h"
#include "logginginterface.h"

#include <QByteArray>
#include <QFile>

#include <cstdio>
#include <cstring>

#ifdef HUE_WITH_BREAKPAD
#include <client/linux/handler/exception_handler.h>
#include <client/linux/handler/minidump_descriptor.h>

#include <unistd.h>
#endif

google_breakpad::ExceptionHandler* exceptionHandler = nullptr;

namespace {
constexpr char kVersionStampPrefix[] = "$Version: 3.5.3 build 14825 module ";
} // namespace

void formatCrashVersionStamp(char* buffer, std::size_t size, const char* moduleName, quint32 hardwareVersion)
{
    if (size == 0)
        return;
    // The signed shift keeps the sign: an unknown board (0xFFFFFFFF) is stamped as -1.65535.
    const int major = static_cast<qint32>(hardwareVersion) >> 16;
    const int minor = static_cast<int>(hardwareVersion & 0xFFFFu);
    const std::size_t prefixLength = qMin(sizeof(kVersionStampPrefix) - 1, size - 1);
    std::memcpy(buffer, kVersionStampPrefix, prefixLength);
    buffer[prefixLength] = '\0';
    std::snprintf(buffer + prefixLength, size - prefixLength, "%s hardware %d.%d $", moduleName, major,
                  minor);
}

void installCrashHandler(const QString& moduleName)
{
    installCrashHandler(moduleName, QStringLiteral("/tmp"));
}

#ifdef HUE_WITH_BREAKPAD

namespace {
// Static, because the crash callback runs in the signal handler of a broken process and must
// not allocate; Breakpad copies the stamp into every dump from here.
char crashVersionStamp[kCrashVersionStampSize];
char crashModuleName[kCrashModuleNameSize];
// Kept for the life of the process and never freed: a crash can come at any time, also while
// static objects are being destroyed.
google_breakpad::MinidumpDescriptor* dumpDescriptor = nullptr;
} // namespace

void installCrashHandler(const QString& moduleName, const QString& dumpDirectory)
{
    if (exceptionHandler) {
        // A second handler would write a second dump of every crash.
        LOG_WARNING << "crash handler already installed, ignoring the one for" << moduleName;
        return;
    }
    dumpDescriptor = new google_breakpad::MinidumpDescriptor(QFile::encodeName(dumpDirectory).toStdString());
    // No filter, no context, handlers installed, dumps written in-process (no server).
    exceptionHandler = new google_breakpad::ExceptionHandler(*dumpDescriptor, nullptr, dumpCollectorCallback,
                                                             nullptr, true, -1);

    const QByteArray name = moduleName.toUtf8();
    formatCrashVersionStamp(crashVersionStamp, sizeof crashVersionStamp, name.constData(),
                            getVornHardwareVersion());
    exceptionHandler->RegisterAppMemory(crashVersionStamp, sizeof crashVersionStamp);
    // qstrncpy copies at most 63 bytes and always terminates.
    qstrncpy(crashModuleName, name.constData(), sizeof crashModuleName);
}

bool dumpCollectorCallback(const google_breakpad::MinidumpDescriptor& descriptor, void* /*context*/,
                           bool succeeded)
{
    // Runs in the signal handler of the crashed process: async-signal-safe calls only, no
    // allocation, no Qt, no new log lines. The lines still queued for the log writer go out
    // first, from this thread: they say what led up to the crash. The collector is not waited
    // for; it outlives us.
    flushLoggingAfterCrash();
    if (fork() == 0) {
        execlp("dump-collector", "dump-collector", crashModuleName, descriptor.path(),
               static_cast<char*>(nullptr));
        // Nobody will collect the dump, so do not leave it behind.
        unlink(descriptor.path());
        _exit(1);
    }
    return succeeded;
}

#else

void installCrashHandler(const QString& moduleName, const QString& /*dumpDirectory*/)
{
    LOG_INFO << "crash dumps are not available in this build, no crash handler for" << moduleName;
}

#endif
