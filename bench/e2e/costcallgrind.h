#pragma once

#include "benchsystem.h"

#include <QMap>
#include <QString>
#include <QStringList>

namespace e2ebench {

// Instructions the service executes per light change, counted by valgrind's callgrind: the
// service runs under it with one bridge of `lights` lights; the counters are zeroed once every
// light is primed and dumped when every change of the storm is answered.
struct InstructionFigure
{
    int rounds = 0;
    int intervalMs = 0;
    int changes = 0;  // light changes the bridge made
    int answered = 0; // of them answered at the hub (the service kept up when all are)
    int hubCalls = 0;
    qint64 instructions = -1; // Ir between zeroing and dump
    QStringList topFunctions; // callgrind_annotate's lines of the highest own cost
    QString dumpFile;
    QString error;
};

InstructionFigure measureInstructions(const QString& servicePath, const QString& folder,
                                      const QString& constDataDir, BridgeFirmware firmware, int lights,
                                      int rounds, int intervalMs);

// Whether valgrind, callgrind_control and callgrind_annotate can be run.
bool callgrindAvailable(QString* missing);

} // namespace e2ebench
