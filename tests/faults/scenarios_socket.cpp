// Whoever can reach the hub's socket directory can talk to the service's own listening socket:
// random bytes, messages announcing huge lengths, and connections by the thousand.
#include "scenarios.h"

#include <QLocalSocket>
#include <QRandomGenerator>

#include <memory>
#include <vector>

namespace faults {

namespace {

// The wire's sync word, little-endian, then a message type byte.
QByteArray header(quint8 type)
{
    return QByteArray("\x45\xBF\xD7\xA3", 4) + char(type);
}

QByteArray int32(qint32 value)
{
    QByteArray bytes(4, 0);
    for (int i = 0; i < 4; ++i)
        bytes[i] = char((quint32(value) >> (8 * i)) & 0xFF);
    return bytes;
}

// Connects, writes everything (bounded) and, unless `keep`, closes; the bytes written.
qint64 send(const QString& path, const QByteArray& bytes, std::unique_ptr<QLocalSocket>* keep = nullptr)
{
    auto socket = std::make_unique<QLocalSocket>();
    socket->connectToServer(path);
    if (!socket->waitForConnected(2000))
        return 0;
    socket->write(bytes);
    poll([&] { return socket->bytesToWrite() == 0 || !socket->waitForBytesWritten(100); }, 5000, 1);
    const qint64 written = bytes.size() - socket->bytesToWrite();
    if (keep)
        *keep = std::move(socket);
    else
        socket->abort();
    return written;
}

} // namespace

QList<Row> hubSocketAbuse(Rig& rig)
{
    const int connections = rig.duration(1000, 10000);
    Row row = rig.begin(QStringLiteral("hub socket: garbage, huge lengths, %1 connections").arg(connections));
    const QString path = rig.hub().socketDir() + "/com.orlux.tamsa.huecontroller";
    QRandomGenerator random(4711);
    qint64 sent = 0;

    // Random bytes; every KiB a sync word and a random type, so that the parser gets past
    // scanning and into reading values.
    for (int c = 0; c < 8; ++c) {
        QByteArray bytes(64 * 1024, 0);
        random.fillRange(reinterpret_cast<quint32*>(bytes.data()), bytes.size() / 4);
        for (int at = 0; at + 5 < bytes.size(); at += 1024)
            bytes.replace(at, 5, header(quint8(random.bounded(8))));
        sent += send(path, bytes);
    }

    // Counts far beyond anything sent: a client name of 2 GiB, a string list of 2^28 entries,
    // and a call whose byte array is announced just under the message limit and followed by
    // 1 MiB of it, held open while the supervisor talks to the service.
    sent += send(path, header(4) + char(1) + int32(0x7FFFFFFF));
    sent += send(path, header(2) + "x" + char(0) + char(13) + int32(0x10000000));
    std::unique_ptr<QLocalSocket> held;
    sent += send(path,
                 header(0) + "\x01\x00" + "runStage" + char(0) + char(2) + int32(64 * 1024 * 1024 - 64) +
                     QByteArray(1024 * 1024, 'x'),
                 &held);
    if (rig.hub().hubctl({"stage", "1"}).exitCode != 0) {
        row.failed = true;
        row.notes << "FAIL: stage 1 unanswered while a huge message was half sent";
    }
    held.reset();

    // Connections opened a hundred at a time, then closed.
    int refused = 0;
    for (int done = 0; done < connections && rig.serviceAlive(); done += 100) {
        std::vector<std::unique_ptr<QLocalSocket>> batch;
        for (int i = 0; i < 100 && done + i < connections; ++i) {
            batch.push_back(std::make_unique<QLocalSocket>());
            batch.back()->connectToServer(path);
        }
        for (auto& socket : batch)
            refused += socket->waitForConnected(2000) ? 0 : 1;
        batch.clear();
        hold(20);
    }
    QElapsedTimer faultEnd;
    faultEnd.start();
    row.notes << QStringLiteral("%1 KiB sent, %2 connections refused").arg(sent / 1024).arg(refused);

    int fds = -1;
    if (rig.serviceAlive() &&
        !poll([&] { return (fds = openFds(rig.service().process().pid())) <= row.fdsBefore + 2; }, 10000)) {
        row.failed = true;
        row.notes << QStringLiteral("FAIL: %1 fds still open 10 s later").arg(fds);
    }
    if (rig.serviceAlive() && rig.hub().hubctl({"stage", "1"}).exitCode != 0) {
        row.failed = true;
        row.notes << "FAIL: stage 1 unanswered afterwards";
    }
    rig.writeFinal();
    rig.finish(row, faultEnd);
    return {row};
}

} // namespace faults
