#include "connectionsockets.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdlib>
#include <functional>

namespace bridgeemu {

namespace {

int portOf(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in*>(&address)->sin_port);
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6*>(&address)->sin6_port);
    return -1;
}

// The local and remote port of a connected TCP socket that is not a listening one.
bool connectionPorts(int fd, int& localPort, int& remotePort)
{
    struct stat status
    {
    };
    if (fstat(fd, &status) != 0 || !S_ISSOCK(status.st_mode))
        return false;
    int listening = 0;
    socklen_t length = sizeof listening;
    if (getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &length) != 0 || listening)
        return false;
    sockaddr_storage local{};
    sockaddr_storage remote{};
    socklen_t localLength = sizeof local;
    socklen_t remoteLength = sizeof remote;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &localLength) != 0 ||
        getpeername(fd, reinterpret_cast<sockaddr*>(&remote), &remoteLength) != 0)
        return false;
    localPort = portOf(local);
    remotePort = portOf(remote);
    return localPort > 0 && remotePort > 0;
}

void forEachDescriptor(const std::function<void(int)>& visit)
{
    DIR* directory = opendir("/proc/self/fd");
    if (!directory)
        return;
    const int ownFd = dirfd(directory);
    while (const dirent* entry = readdir(directory)) {
        char* end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end != entry->d_name && *end == '\0' && fd != ownFd)
            visit(static_cast<int>(fd));
    }
    closedir(directory);
}

} // namespace

void shutDownConnectionsOnPort(int port)
{
    forEachDescriptor([port](int fd) {
        int localPort = 0;
        int remotePort = 0;
        if (connectionPorts(fd, localPort, remotePort) && localPort == port)
            shutdown(fd, SHUT_RDWR);
    });
}

void acknowledgeNow(int localPort, int remotePort, int knownSocket)
{
    // One connection is served by one thread at a time, so a thread remembers its socket.
    thread_local int cachedSocket = -1;
    const auto matches = [&](int fd) {
        int local = 0;
        int remote = 0;
        return fd >= 0 && connectionPorts(fd, local, remote) && local == localPort && remote == remotePort;
    };
    int fd = knownSocket;
    if (!matches(fd)) {
        fd = cachedSocket;
        if (!matches(fd)) {
            fd = -1;
            forEachDescriptor([&](int candidate) {
                if (fd < 0 && matches(candidate))
                    fd = candidate;
            });
        }
    }
    if (fd < 0)
        return;
    cachedSocket = fd;
    // Setting TCP_QUICKACK sends a pending delayed acknowledgement right away.
    int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on);
}

} // namespace bridgeemu
