#include "hue_globals.h"

QString ConstDataDir;
