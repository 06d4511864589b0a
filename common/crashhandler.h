#pragma once

#include <QString>
#include <QtGlobal>

#include <cstddef>

// Crash dumps of a hub service. After installCrashHandler() a crash of the process (a fatal
// signal) writes a Breakpad minidump and starts the external program "dump-collector" with the
// module name and the path of the dump; when that program cannot be started the dump is
// deleted again, so that dumps nobody collects do not fill the hub's /tmp.
//
// Every minidump carries a version stamp "$Version: 3.5.3 build 14825 module <name> hardware
// <major>.<minor> $" in its memory, so that a dump can be told apart without its file name.

namespace google_breakpad {
class ExceptionHandler;
class MinidumpDescriptor;
} // namespace google_breakpad

constexpr std::size_t kCrashVersionStampSize = 256;
constexpr std::size_t kCrashModuleNameSize = 64;

// Installs the crash handler for this process, writing dumps into "/tmp". Call it once, early in
// main(); the handler stays for the life of the process.
void installCrashHandler(const QString& moduleName);
// The same, with the dumps going into `dumpDirectory` (tests point it at a private folder).
void installCrashHandler(const QString& moduleName, const QString& dumpDirectory);

// The process's crash handler; null before installCrashHandler() and in builds without Breakpad.
extern google_breakpad::ExceptionHandler* exceptionHandler;

// Writes the zero-terminated version stamp for `moduleName` (UTF-8) and `hardwareVersion`
// ((major << 16) | minor, as getVornHardwareVersion() returns it) into `buffer`, cut to `size`.
void formatCrashVersionStamp(char* buffer, std::size_t size, const char* moduleName, quint32 hardwareVersion);

#ifdef HUE_WITH_BREAKPAD
// Breakpad's callback after a minidump was written, run inside the signal handler of the crashed
// process: starts "dump-collector <module> <dump path>" without waiting for it, deletes the dump
// when the program cannot be started, and passes `succeeded` back to Breakpad unchanged.
bool dumpCollectorCallback(const google_breakpad::MinidumpDescriptor& descriptor, void* context,
                           bool succeeded);
#endif
