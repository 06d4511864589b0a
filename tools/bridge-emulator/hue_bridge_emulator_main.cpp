#include "bridgeemulator.h"
#include "emulatoroptions.h"

#include <csignal>
#include <cstdio>
#include <pthread.h>

int main(int argc, char** argv)
{
    // Block the ending signals before any thread starts, so that every thread inherits the mask
    // and only sigwait() below receives them.
    sigset_t endingSignals;
    sigemptyset(&endingSignals);
    sigaddset(&endingSignals, SIGINT);
    sigaddset(&endingSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endingSignals, nullptr);

    std::string error;
    const auto options = bridgeemu::parseEmulatorOptions({argv + 1, argv + argc}, &error);
    if (!options) {
        std::fprintf(stderr, "hue-bridge-emulator: %s\n", error.c_str());
        return 2;
    }
    if (options->help) {
        std::fputs(bridgeemu::emulatorHelpText().c_str(), stdout);
        return 0;
    }

    bridgeemu::BridgeEmulator emulator(options->config);
    if (options->verbose) {
        emulator.setRequestObserver([](const bridgeemu::RecordedRequest& request) {
            std::fprintf(stderr, "%6lld ms %s %s %s -> %d\n",
                         static_cast<long long>(request.sinceStart.count()), request.scheme.c_str(),
                         request.method.c_str(), request.target.c_str(), request.status);
        });
    }
    if (!emulator.start(&error)) {
        std::fprintf(stderr, "hue-bridge-emulator: %s\n", error.c_str());
        return 1;
    }
    std::printf("listening https=%d http=%d", emulator.httpsPort(), emulator.httpPort());
    if (emulator.controlPort() >= 0)
        std::printf(" control=%d", emulator.controlPort());
    if (emulator.sharedPort() >= 0)
        std::printf(" shared=%d", emulator.sharedPort());
    std::printf("\n");
    std::fflush(stdout);
    std::fprintf(stderr, "hue-bridge-emulator: bridge %s \"%s\" with %zu lights on 127.0.0.1\n",
                 emulator.bridgeId().c_str(), emulator.identity().name.c_str(), emulator.lightIds().size());

    int received = 0;
    sigwait(&endingSignals, &received);
    std::fprintf(stderr, "hue-bridge-emulator: signal %d, stopping\n", received);
    emulator.stop();
    return 0;
}
