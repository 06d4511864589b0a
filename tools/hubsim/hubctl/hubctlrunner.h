#pragma once

#include "hubctlcommands.h"

#include <QObject>
#include <QVariantMap>

#include <cstdio>
#include <memory>

class SocketArgument;
class SocketInterface;

// Carries out one parsed hubctl command line against hubsim's control service and prints the
// answer. Exit codes: 0 done, 1 hubsim refused or the action failed, 2 bad command line,
// 3 hubsim not reachable or the call failed.
class HubctlRunner : public QObject
{
    Q_OBJECT

public:
    enum ExitCode
    {
        Done = 0,
        Refused = 1,
        Usage = 2,
        Unreachable = 3,
    };

    HubctlRunner(const HubctlInvocation& invocation, FILE* out, FILE* err);
    ~HubctlRunner() override;

    // Everything but "follow" finishes here; "follow" returns -1 after subscribing, and the
    // caller runs the event loop (finished() ends it).
    int run();

signals:
    void finished(int exitCode);

private slots:
    void onEvent(QVariantMap event);

private:
    bool connectToHub();
    // A blocking call; on failure prints why and returns nothing (None).
    SocketArgument call(const QString& method, const QVector<SocketArgument>& arguments);
    int printAnswer(const SocketArgument& answer);
    int usage(const QString& message);
    void print(const QString& text);
    void printJson(const QVariant& value);

    int devices();
    int write();
    int mdns();
    int ssdp();
    int network();
    int config();
    int stage();
    int follow();

    HubctlInvocation m_invocation;
    FILE* m_out;
    FILE* m_err;
    std::unique_ptr<SocketInterface> m_hub;
};
