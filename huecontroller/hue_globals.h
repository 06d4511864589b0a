#pragma once

#include <QString>

// The read-only data directory of the service ("data/constpath", default DataDir). main() sets
// it once at start-up; the light-type descriptions lie in its folder "hue".
extern QString ConstDataDir;
