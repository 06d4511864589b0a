#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// Process-wide values of the shared service framework. main() sets them once at start-up
// from the hub-wide "database" settings store; everything else only reads them.

// The writable data directory ("data/path", default "./data").
extern QString DataDir;
// Process-wide debug flag of the shared diagnostics ("debug/xmlexport" == "1", or "debug" on
// the command line).
extern bool DebugMode;

// The hub's hardware generation as (major << 16) | minor: 0x10000 to 0x50000 for the five
// hub models, 0xFFFFFFFF on any other machine (a development PC, an unknown board).
constexpr quint32 kUnknownHardwareVersion = 0xFFFFFFFFu;
quint32 getVornHardwareVersion();
// True on one of the hub models; development machines get the developer conveniences.
bool isVornDevice();

// The lookup behind getVornHardwareVersion(), apart from the file it reads: maps the board's
// device-tree model text to the hardware version.
quint32 vornHardwareVersionForModel(const QByteArray& model);
