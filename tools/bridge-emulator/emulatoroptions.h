#pragma once

#include "bridgeemulator.h"

#include <optional>
#include <string>
#include <vector>

namespace bridgeemu {

struct EmulatorOptions
{
    EmulatorConfig config;
    bool help = false;
    bool verbose = false; // one line per request on standard error
};

// Reads the command line of hue-bridge-emulator (without the program name). Nothing, with a
// message in `error`, for an unknown option or a bad value.
std::optional<EmulatorOptions> parseEmulatorOptions(const std::vector<std::string>& arguments,
                                                    std::string* error);
std::string emulatorHelpText();

} // namespace bridgeemu
