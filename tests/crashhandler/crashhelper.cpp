// Installs the crash handler the way a service does and then crashes, for tst_crashhandler.
// Usage: crashhelper <module name> <dump directory>

#include "common/crashhandler.h"

#include <QString>

#include <cstdint>
#include <cstdio>

// Read through a volatile so that the compiler can neither drop the store nor turn it into a
// trap; not null, so that the undefined-behaviour sanitizer lets it through to a real SIGSEGV.
volatile std::uintptr_t badAddress = 16;

__attribute__((noinline)) void crashHereOnPurpose()
{
    *reinterpret_cast<volatile int*>(badAddress) = 1;
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s <module name> <dump directory>\n", argv[0]);
        return 2;
    }
    installCrashHandler(QString::fromLocal8Bit(argv[1]), QString::fromLocal8Bit(argv[2]));
    crashHereOnPurpose();
    return 1;
}
